#pragma once

#include <QTextEdit>
#include <QUrl>

#include <functional>

// The composer's text editor: plain text only. Pasted or dropped files are handed to
// the panel first (as attachments or path text); what it does not take is pasted as
// plain text.
class ComposerTextView final : public QTextEdit {
    Q_OBJECT

public:
    explicit ComposerTextView(QWidget *parent = nullptr);

    // Returns true when the files or image in the data were consumed.
    std::function<bool(const QMimeData *)> onAttachmentPaste;

    // Files dropped onto the text become their paths, one per line.
    std::function<void(const QList<QUrl> &)> onFilesDropped;
    // A key press the panel may take before the editor does (preset shortcuts).
    std::function<bool(QKeyEvent *)> onKeyPress;

    // Inserts text at the selection as typed text, so that undo works.
    void insertTypedText(const QString &text);

protected:
    bool canInsertFromMimeData(const QMimeData *source) const override;
    void insertFromMimeData(const QMimeData *source) override;
    QMimeData *createMimeDataFromSelection() const override;
    void dropEvent(QDropEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
};
