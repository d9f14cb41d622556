#include "editing/MentionCompleter.h"

#include "editing/CompletionPopup.h"
#include "editing/FuzzyMatcher.h"
#include "editing/ProjectFiles.h"

#include <QKeyEvent>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>

namespace {
// When to list a folder whose composer has not drawn yet.
constexpr int kLatestStartMs = 300;
} // namespace

MentionCompleter::MentionCompleter(QTextEdit *view, QObject *parent)
    : QObject(parent)
    , m_view(view)
    , m_popup(new CompletionPopup(view))
{
    connect(m_popup, &CompletionPopup::chosen, this, &MentionCompleter::choose);
    view->viewport()->installEventFilter(this);
    // A click elsewhere in the text leaves the token.
    connect(view, &QTextEdit::cursorPositionChanged, this, [this] {
        if (isShowing())
            refresh();
    });
}

MentionCompleter::~MentionCompleter()
{
    if (m_building)
        m_building->cancel();
    delete m_popup.data();
}

void MentionCompleter::setFolder(const std::optional<QString> &folder)
{
    if (folder == m_folder)
        return;
    hide();
    m_folder = folder;
    m_index.reset();
    if (m_building)
        m_building->cancel();
    m_building.reset();
    if (!folder || folder->isEmpty() || m_startPending)
        return;
    // Once the text has drawn its first frame (or a little later when it is not shown): a large
    // tree listed on the other core would compete with it. A folder set twice meanwhile is
    // listed once.
    m_startPending = true;
    QTimer::singleShot(m_framePainted ? 0 : kLatestStartMs, this, &MentionCompleter::startBuilding);
}

void MentionCompleter::startBuilding()
{
    if (!m_startPending)
        return;
    m_startPending = false;
    if (!m_folder || m_folder->isEmpty() || m_building || m_index)
        return;
    m_building = std::make_unique<QFutureWatcher<std::shared_ptr<PathIndex>>>();
    connect(m_building.get(), &QFutureWatcherBase::finished, this, &MentionCompleter::indexBuilt);
    m_building->setFuture(ProjectFiles::indexInBackground(*m_folder));
}

bool MentionCompleter::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Paint && !m_framePainted) {
        m_framePainted = true;
        // After this paint, not inside it.
        if (m_startPending)
            QTimer::singleShot(0, this, &MentionCompleter::startBuilding);
    }
    return QObject::eventFilter(watched, event);
}

void MentionCompleter::indexBuilt()
{
    QFuture<std::shared_ptr<PathIndex>> future = m_building->future();
    if (future.isCanceled() || future.resultCount() == 0)
        return;
    // Taken out, so that the index goes with this completer and not with the watcher's late deletion.
    m_index = future.takeResult();
    m_building.release()->deleteLater();
    Q_EMIT indexReady();
    // The list may be waiting for it.
    if (isShowing()) {
        m_token.reset();
        refresh();
    }
}

CompletionPopup *MentionCompleter::popup() const
{
    return m_popup.data();
}

bool MentionCompleter::isShowing() const
{
    return m_popup && m_popup->isVisible();
}

void MentionCompleter::hide()
{
    m_token.reset();
    if (m_popup)
        m_popup->hide();
}

void MentionCompleter::refresh()
{
    if (!m_view || !m_popup || !m_folder || m_view->isReadOnly()) {
        hide();
        return;
    }
    const QTextCursor cursor = m_view->textCursor();
    if (cursor.hasSelection()) {
        hide();
        return;
    }
    const QTextBlock block = cursor.block();
    const std::optional<MentionToken::Token> token = MentionToken::at(block.text(), cursor.positionInBlock());
    if (!token) {
        hide();
        return;
    }
    const bool sameSearch =
        isShowing() && m_token && m_token->query == token->query && m_tokenBlockPosition == block.position();
    m_token = token;
    m_tokenBlockPosition = block.position();
    if (sameSearch)
        return;
    QRect cursorRect = m_view->cursorRect(cursor);
    cursorRect.moveTopLeft(m_view->viewport()->mapToGlobal(cursorRect.topLeft()));
    if (!m_index) {
        // Still listing: say so rather than show nothing; the list fills in when it is done.
        m_shownEntries.clear();
        m_popup->present({}, cursorRect, QStringLiteral("Listing files\u2026"));
        return;
    }
    const QString query = FuzzyMatcher::foldedQuery(token->query);
    QList<CompletionPopup::Item> items;
    m_shownEntries.clear();
    for (const PathIndex::Match &match : m_index->search(token->query, shownMatches)) {
        const PathIndex::Entry &entry = m_index->entry(match.entry);
        QList<qsizetype> positions;
        FuzzyMatcher::score(query, entry.path, FuzzyMatcher::foldedCandidate(entry.path), &positions);
        items.append({entry.isFolder ? entry.path + u'/' : entry.path, entry.isFolder, positions});
        m_shownEntries.append(match.entry);
    }
    if (items.isEmpty() && m_index->size() == 0) {
        hide();
        return;
    }
    m_popup->present(items, cursorRect, QStringLiteral("No matching files"));
}

bool MentionCompleter::handleKey(QKeyEvent *event)
{
    if (!isShowing())
        return false;
    const Qt::KeyboardModifiers held = event->modifiers() & ~Qt::KeyboardModifiers(Qt::KeypadModifier);
    if (held != Qt::NoModifier)
        return false;
    switch (event->key()) {
    case Qt::Key_Up:
        m_popup->moveCurrent(-1);
        return true;
    case Qt::Key_Down:
        m_popup->moveCurrent(1);
        return true;
    case Qt::Key_PageUp:
        m_popup->moveCurrent(-m_popup->visibleRows());
        return true;
    case Qt::Key_PageDown:
        m_popup->moveCurrent(m_popup->visibleRows());
        return true;
    case Qt::Key_Escape:
        hide();
        return true;
    case Qt::Key_Tab:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // With nothing to choose, the key does what it does in the text.
        if (m_shownEntries.isEmpty()) {
            hide();
            return false;
        }
        choose(m_popup->currentRow());
        return true;
    default:
        return false;
    }
}

void MentionCompleter::choose(int row)
{
    if (!m_view || !m_index || !m_token || row < 0 || row >= m_shownEntries.size())
        return;
    const PathIndex::Entry entry = m_index->entry(m_shownEntries.at(row));
    const MentionToken::Token token = *m_token;
    hide();
    QTextCursor cursor = m_view->textCursor();
    cursor.setPosition(m_tokenBlockPosition + int(token.start));
    cursor.setPosition(m_tokenBlockPosition + int(token.start + token.length), QTextCursor::KeepAnchor);
    QString insertion = MentionToken::insertion(entry.path, entry.isFolder);
    const QTextBlock block = cursor.block();
    const int after = cursor.position() - block.position();
    // A file ends the mention; a folder's list goes on inside it.
    if (!entry.isFolder && (after >= block.text().size() || !block.text().at(after).isSpace()))
        insertion += u' ';
    cursor.insertText(insertion);
    if (insertion.endsWith(u'"'))
        cursor.movePosition(QTextCursor::Left);
    m_view->setTextCursor(cursor);
    if (entry.isFolder)
        refresh();
}
