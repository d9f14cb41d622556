#pragma once

#include <QListWidget>

// The `@` completion list: a small window under the cursor that never takes the keyboard, so
// the text keeps it and forwards the list's keys (Up, Down, Tab, Return, Escape). A press on a
// row chooses it.
class CompletionPopup final : public QListWidget {
    Q_OBJECT

public:
    struct Item {
        QString text;
        bool isFolder = false;
        // Matched characters of the text, drawn in bold.
        QList<qsizetype> positions;
    };

    // Belongs to the anchor's window, above it.
    explicit CompletionPopup(QWidget *anchor);

    // Shows the items with the first one current, under (or, without room, over) the cursor
    // rectangle given in global coordinates. A disabled row with a note shows when there are none.
    void present(const QList<Item> &items, const QRect &cursorRect, const QString &emptyNote = QString());
    // Moves the current row, clamped to the list.
    void moveCurrent(int rows);
    int visibleRows() const;

Q_SIGNALS:
    void chosen(int row);

protected:
    void mousePressEvent(QMouseEvent *event) override;
};
