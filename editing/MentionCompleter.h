#pragma once

#include "editing/MentionToken.h"
#include "editing/PathIndex.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class CompletionPopup;
class QKeyEvent;
class QTextEdit;

// `@` file mentions in a composer: the project folder's index is built in the background when
// the folder is set, and typing in an `@` token shows its best matches. Tab or Return puts in
// `@relative/path`; Escape closes the list and leaves the text as typed. Without a folder, or
// with nothing listed, no list shows.
class MentionCompleter final : public QObject {
    Q_OBJECT

public:
    static constexpr qsizetype shownMatches = 50;

    explicit MentionCompleter(QTextEdit *view, QObject *parent = nullptr);
    ~MentionCompleter() override;

    // The project folder; none turns mentions off. A new folder starts a new index.
    void setFolder(const std::optional<QString> &folder);
    const std::optional<QString> &folder() const { return m_folder; }
    // The index once built (none before, or without a folder).
    std::shared_ptr<PathIndex> index() const { return m_index; }
    CompletionPopup *popup() const;
    bool isShowing() const;

    // The list's keys while it shows; true when the key was the list's.
    bool handleKey(QKeyEvent *event);
    // Looks at the token under the cursor after the user typed: shows, updates or hides the list.
    void refresh();
    void hide();

Q_SIGNALS:
    void indexReady();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void startBuilding();
    void choose(int row);
    void indexBuilt();

    QPointer<QTextEdit> m_view;
    // A window of the view's panel, which may go first.
    QPointer<CompletionPopup> m_popup;
    std::optional<QString> m_folder;
    std::shared_ptr<PathIndex> m_index;
    std::unique_ptr<QFutureWatcher<std::shared_ptr<PathIndex>>> m_building;
    // The token the list shows matches for, in document positions, and the entries shown.
    std::optional<MentionToken::Token> m_token;
    int m_tokenBlockPosition = 0;
    QList<qsizetype> m_shownEntries;
    bool m_startPending = false;
    bool m_framePainted = false;
};
