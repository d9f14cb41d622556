#pragma once

#include "editing/PromptHistoryBrowser.h"

#include <QObject>
#include <QPointer>

#include <optional>

class FindBar;
class HistorySearchPopup;
class KeyboardShortcuts;
class MentionCompleter;
class PromptHighlighter;
class PromptHistory;
class QContextMenuEvent;
class QKeyEvent;
class QTextEdit;
class SpellCheckService;

// What the editing aids use; each may be missing, which turns its aid off.
struct EditingAidsServices {
    PromptHistory *history = nullptr;
    SpellCheckService *spelling = nullptr;
    KeyboardShortcuts *shortcuts = nullptr;
};

// Every editing aid of one composer's text, attached to its text view from outside: Markdown
// highlighting with spelling, `@` mentions of the working folder's files, Up and Down through
// the folder's earlier prompts, their search, find and replace, and the context menu's
// suggestions. The composer only places the find bar and passes the working folder.
class PromptEditingAids final : public QObject {
    Q_OBJECT

public:
    PromptEditingAids(QTextEdit *view, EditingAidsServices services, QObject *parent = nullptr);
    ~PromptEditingAids() override;

    // The folder the prompt is for: mentions list its files, history recalls its prompts.
    void setWorkingFolder(const std::optional<QString> &folder);
    const std::optional<QString> &workingFolder() const { return m_folder; }

    FindBar *findBar() const { return m_findBar; }
    // Its height while shown, for the panel's height rule.
    int findBarHeight() const;
    MentionCompleter *mentions() const { return m_mentions; }
    PromptHighlighter *highlighter() const { return m_highlighter; }
    HistorySearchPopup *historySearch() const;

    void openHistorySearch();
    // Replaces the text with an earlier prompt, as one undoable edit, the cursor at its end.
    void fillWithPrompt(const QString &prompt);

Q_SIGNALS:
    // The find bar came or went.
    void layoutChanged();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool handleKey(QKeyEvent *event);
    bool isHistorySearchKey(const QKeyEvent *event) const;
    bool isFindKey(const QKeyEvent *event) const;
    bool recall(bool older);
    bool showContextMenu(QContextMenuEvent *event);
    // While its window is on screen, the composer holds the spelling dictionary.
    void holdSpelling(bool hold);

    QPointer<QTextEdit> m_view;
    // The same view, for the event filter: while the view is destroyed it is a plain QWidget, and
    // casting it to QTextEdit then (as m_view would) is undefined.
    QPointer<QObject> m_watchedView;
    EditingAidsServices m_services;
    QPointer<SpellCheckService> m_spelling;
    bool m_holdsSpelling = false;
    std::optional<QString> m_folder;
    PromptHighlighter *m_highlighter = nullptr;
    MentionCompleter *m_mentions = nullptr;
    FindBar *m_findBar = nullptr;
    QPointer<HistorySearchPopup> m_historySearch;
    PromptHistoryBrowser m_browser;
    bool m_refreshMentionsAfterKey = false;
};
