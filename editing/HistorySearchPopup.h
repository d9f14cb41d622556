#pragma once

#include "editing/PromptHistory.h"

#include <QFrame>

#include <optional>

class QLabel;
class QLineEdit;
class QListWidget;

// The search over earlier prompts: a field and the matching prompts, this folder's first. Return
// or a click hands the chosen prompt back for editing; nothing is ever submitted from here.
// Escape closes it.
class HistorySearchPopup final : public QFrame {
    Q_OBJECT

public:
    HistorySearchPopup(const PromptHistory &history, QWidget *anchor);

    static constexpr qsizetype shownMatches = 50;

    // Opens over the anchor's top edge, as wide as its window, with the field empty.
    void open(const std::optional<QString> &cwd);
    QLineEdit *field() const { return m_field; }
    QListWidget *list() const { return m_list; }

Q_SIGNALS:
    void chosen(const QString &prompt);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void search();
    void choose();

    const PromptHistory &m_history;
    QWidget *m_anchor;
    QLineEdit *m_field = nullptr;
    QListWidget *m_list = nullptr;
    QLabel *m_empty = nullptr;
    std::optional<QString> m_cwd;
    QList<PromptHistoryEntry> m_shown;
};
