#include "editing/PromptEditingAids.h"

#include "core/TarvelError.h"
#include "editing/FindBar.h"
#include "editing/HistorySearchPopup.h"
#include "editing/MentionCompleter.h"
#include "editing/PromptHighlighter.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"
#include "shortcuts/ComposerKeyMatcher.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QTextBlock>
#include <QTextEdit>
#include <QTimer>

namespace {
constexpr int kShownSuggestions = 6;
} // namespace

PromptEditingAids::PromptEditingAids(QTextEdit *view, EditingAidsServices services, QObject *parent)
    : QObject(parent)
    , m_view(view)
    , m_watchedView(view)
    , m_services(services)
    , m_spelling(services.spelling)
    , m_highlighter(new PromptHighlighter(view, services.spelling, this))
    , m_mentions(new MentionCompleter(view, this))
    , m_findBar(new FindBar(view, view->parentWidget()))
{
    connect(m_findBar, &FindBar::visibilityChanged, this, &PromptEditingAids::layoutChanged);
    view->installEventFilter(this);
    view->viewport()->installEventFilter(this);
    view->window()->installEventFilter(this);
}

PromptEditingAids::~PromptEditingAids()
{
    holdSpelling(false);
}

void PromptEditingAids::holdSpelling(bool hold)
{
    if (!m_spelling || hold == m_holdsSpelling)
        return;
    m_holdsSpelling = hold;
    if (hold)
        m_spelling->hold();
    else
        m_spelling->letGo();
}

void PromptEditingAids::setWorkingFolder(const std::optional<QString> &folder)
{
    m_folder = folder;
    m_mentions->setFolder(folder);
    m_browser.setPrompts({});
}

HistorySearchPopup *PromptEditingAids::historySearch() const
{
    return m_historySearch.data();
}

int PromptEditingAids::findBarHeight() const
{
    return m_findBar->isHidden() ? 0 : m_findBar->sizeHint().height();
}

bool PromptEditingAids::eventFilter(QObject *watched, QEvent *event)
{
    // Its children go while it is destroyed, and nothing is to be done for them then.
    const QTextEdit *view = qobject_cast<QTextEdit *>(m_watchedView.data());
    if (!view)
        return false;
    if (watched == view) {
        switch (event->type()) {
        case QEvent::ShortcutOverride: {
            // Keys the composer's own shortcuts would take otherwise (Escape cancels it).
            const auto *key = static_cast<QKeyEvent *>(event);
            if ((m_mentions->isShowing() && key->key() == Qt::Key_Escape) || isFindKey(key) ||
                isHistorySearchKey(key)) {
                event->accept();
                return true;
            }
            break;
        }
        case QEvent::KeyPress: {
            auto *key = static_cast<QKeyEvent *>(event);
            if (handleKey(key))
                return true;
            // What the key typed or erased is known once the text has taken it.
            if (!key->text().isEmpty() || key->key() == Qt::Key_Backspace || key->key() == Qt::Key_Delete) {
                if (!m_refreshMentionsAfterKey) {
                    m_refreshMentionsAfterKey = true;
                    QTimer::singleShot(0, this, [this] {
                        m_refreshMentionsAfterKey = false;
                        m_mentions->refresh();
                    });
                }
            }
            break;
        }
        case QEvent::FocusOut:
            m_mentions->hide();
            break;
        default:
            break;
        }
    } else if (watched == view->viewport() && event->type() == QEvent::ContextMenu) {
        return showContextMenu(static_cast<QContextMenuEvent *>(event));
    } else if (watched == view->window()) {
        switch (event->type()) {
        case QEvent::Show:
            holdSpelling(true);
            break;
        case QEvent::Hide:
            holdSpelling(false);
            m_mentions->hide();
            break;
        case QEvent::Move:
        case QEvent::Resize:
        case QEvent::WindowDeactivate:
            m_mentions->hide();
            break;
        default:
            break;
        }
    }
    return false;
}

bool PromptEditingAids::handleKey(QKeyEvent *event)
{
    if (m_mentions->handleKey(event))
        return true;
    if (isFindKey(event)) {
        m_findBar->open();
        return true;
    }
    if (isHistorySearchKey(event)) {
        openHistorySearch();
        return true;
    }
    const Qt::KeyboardModifiers held = event->modifiers() & ~Qt::KeyboardModifiers(Qt::KeypadModifier);
    if (held == Qt::NoModifier && (event->key() == Qt::Key_Up || event->key() == Qt::Key_Down))
        return recall(event->key() == Qt::Key_Up);
    return false;
}

bool PromptEditingAids::isFindKey(const QKeyEvent *event) const
{
    if (!event->matches(QKeySequence::Find))
        return false;
    // A combination the user gave a composer shortcut stays that shortcut's.
    return !m_services.shortcuts ||
           ComposerKeyMatcher::match({event->key(), event->modifiers(), event->text()}, *m_services.shortcuts)
                   .action == ComposerKeyAction::none;
}

bool PromptEditingAids::isHistorySearchKey(const QKeyEvent *event) const
{
    if (!m_services.history || !m_services.shortcuts)
        return false;
    const std::optional<Shortcut> bound =
        m_services.shortcuts->getShortcut(ShortcutNames::searchPromptHistory());
    return bound && Shortcut::fromKeyEvent({event->key(), event->modifiers(), event->text()}) == bound;
}

bool PromptEditingAids::recall(bool older)
{
    if (!m_services.history || m_view->isReadOnly())
        return false;
    const QString text = m_view->toPlainText();
    // Within a recalled prompt of several lines the keys move the cursor until its first or
    // last line, as in a shell.
    QTextCursor probe = m_view->textCursor();
    if (m_browser.isBrowsing() && probe.movePosition(older ? QTextCursor::Up : QTextCursor::Down))
        return false;
    if (older && !m_browser.isBrowsing() && text.isEmpty())
        m_browser.setPrompts(m_services.history->prompts(m_folder));
    const std::optional<QString> prompt = older ? m_browser.older(text) : m_browser.newer(text);
    if (!prompt)
        return false;
    QTextCursor cursor(m_view->document());
    cursor.beginEditBlock();
    cursor.select(QTextCursor::Document);
    cursor.insertText(*prompt);
    cursor.endEditBlock();
    m_view->setTextCursor(cursor);
    m_view->ensureCursorVisible();
    m_mentions->hide();
    return true;
}

void PromptEditingAids::fillWithPrompt(const QString &prompt)
{
    m_browser.setPrompts({});
    QTextCursor cursor(m_view->document());
    cursor.beginEditBlock();
    cursor.select(QTextCursor::Document);
    cursor.insertText(prompt);
    cursor.endEditBlock();
    m_view->setTextCursor(cursor);
    m_view->ensureCursorVisible();
    m_view->setFocus(Qt::OtherFocusReason);
}

void PromptEditingAids::openHistorySearch()
{
    if (!m_services.history || m_view->isReadOnly())
        return;
    m_mentions->hide();
    if (!m_historySearch) {
        m_historySearch = new HistorySearchPopup(*m_services.history, m_view);
        connect(m_historySearch.data(), &HistorySearchPopup::chosen, this,
                &PromptEditingAids::fillWithPrompt);
    }
    m_historySearch->open(m_folder);
}

bool PromptEditingAids::showContextMenu(QContextMenuEvent *event)
{
    std::unique_ptr<QMenu> menu(m_view->createStandardContextMenu());
    QAction *first = menu->actions().value(0);
    const int position = m_view->cursorForPosition(event->pos()).position();
    if (const auto misspelling = m_highlighter->misspellingAt(position)) {
        const QStringList suggestions = m_services.spelling->suggestions(misspelling->word);
        for (const QString &suggestion : suggestions.mid(0, kShownSuggestions)) {
            QAction *replace = new QAction(suggestion, menu.get());
            connect(replace, &QAction::triggered, this, [this, misspelling = *misspelling, suggestion] {
                QTextCursor cursor(m_view->document());
                cursor.setPosition(misspelling.position);
                cursor.setPosition(misspelling.position + misspelling.length, QTextCursor::KeepAnchor);
                // Only if the word is still there: the text may have changed under the menu.
                if (cursor.selectedText() == misspelling.word)
                    cursor.insertText(suggestion);
            });
            menu->insertAction(first, replace);
        }
        if (suggestions.isEmpty()) {
            QAction *none = new QAction(QStringLiteral("No Suggestions"), menu.get());
            none->setEnabled(false);
            menu->insertAction(first, none);
        }
        QAction *add = new QAction(QStringLiteral("Add to Dictionary"), menu.get());
        add->setObjectName(QStringLiteral("AddToDictionary"));
        connect(add, &QAction::triggered, this, [this, word = misspelling->word] {
            try {
                m_services.spelling->addToPersonalDictionary(word);
            } catch (const TarvelError &error) {
                QMessageBox::warning(m_view->window(), QStringLiteral("Tarvel"), error.description());
            }
        });
        menu->insertAction(first, add);
        menu->insertSeparator(first);
    }
    menu->addSeparator();
    QAction *find = menu->addAction(QStringLiteral("Find and Replace\u2026"), m_findBar, &FindBar::open);
    find->setShortcut(QKeySequence::Find);
    if (m_services.history && !m_view->isReadOnly()) {
        QAction *search = menu->addAction(QStringLiteral("Search Earlier Prompts\u2026"), this,
                                          &PromptEditingAids::openHistorySearch);
        if (m_services.shortcuts) {
            if (const auto bound = m_services.shortcuts->getShortcut(ShortcutNames::searchPromptHistory()))
                if (const auto keys = bound->toQtKeyCombination())
                    search->setShortcut(QKeySequence(*keys));
        }
    }
    menu->exec(event->globalPos());
    return true;
}
