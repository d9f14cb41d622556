#include "composer/ComposerSurface.h"

#include "composer/ComposerPanel.h"
#include "composer/ComposerTextView.h"
#include "composer/PastedImageImport.h"
#include "core/TarvelError.h"

#include <QAbstractTextDocumentLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QTimer>

#include <cmath>

using namespace ComposerLayout;

ComposerSurface::ComposerSurface(Mode mode, const QString &initialText, QObject *parent)
    : QObject(parent)
    , m_mode(mode)
    , m_panel(std::make_unique<ComposerPanel>(mode == Mode::scratch))
{
    ComposerTextView *textView = m_panel->textView();
    textView->setPlainText(initialText);
    textView->moveCursor(QTextCursor::End);
    textView->document()->clearUndoRedoStacks();
    textView->onAttachmentPaste = [this](const QMimeData *data) {
        return handlePaste(data);
    };
    textView->onFilesDropped = [this](const QList<QUrl> &urls) {
        insertPaths(urls);
    };
    textView->onKeyPress = [this](QKeyEvent *event) {
        return onKey && onKey(event->key(), event->modifiers(), event->text());
    };
    connect(textView, &QTextEdit::textChanged, this, [this] { scheduleHeightRecalculation(); });

    m_panel->onSubmit = [this] {
        Q_EMIT submitRequested();
    };
    const auto cancel = [this] {
        Q_EMIT cancelRequested();
    };
    m_panel->onCancel = cancel;
    m_panel->onEscape = cancel;
    m_panel->onUserClose = cancel;
    m_panel->onMoved = [this] {
        windowDidMove();
    };
    m_panel->onResized = [this] {
        windowDidResize();
    };
}

ComposerSurface::~ComposerSurface() = default;

void ComposerSurface::applyInitialSize()
{
    m_panel->resize(initialPanelWidth, 120);
    // Lay the panel out now so the first measurement uses the real text width.
    m_panel->layout()->activate();
    recalculateHeight();
}

QString ComposerSurface::text() const
{
    return m_panel->textView()->toPlainText();
}

void ComposerSurface::setCompositingAvailable(bool available)
{
    m_panel->setCompositingAvailable(available);
}

void ComposerSurface::show(bool focusText)
{
    m_panel->show();
    m_panel->raise();
    if (focusText)
        m_panel->textView()->setFocus(Qt::ActiveWindowFocusReason);
    scheduleHeightRecalculation();
}

void ComposerSurface::completeInitialPlacement()
{
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    m_isFramePersistenceEnabled = true;
    reportFrame();
}

void ComposerSurface::closeProgrammatically()
{
    reportFrame();
    m_panel->isProgrammaticClose = true;
    m_panel->close();
    Q_EMIT closed();
}

void ComposerSurface::reportFrame()
{
    if (m_isFramePersistenceEnabled && onFrameChanged)
        onFrameChanged(m_panel->geometry());
}

bool ComposerSurface::handlePaste(const QMimeData *data)
{
    if (acceptsPaste && !acceptsPaste())
        return false;
    const QList<QUrl> files = PromptAttachment::localFileUrls(data);
    if (!files.isEmpty()) {
        if (onPastedFiles)
            onPastedFiles(files);
        else
            insertPaths(files);
        return true;
    }
    std::optional<PromptAttachment> image;
    try {
        image = PastedImageImport::importImage(data);
    } catch (const TarvelError &error) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Tarvel"),
                        QStringLiteral("Could not paste the image."), QMessageBox::Ok, m_panel.get());
        box.setInformativeText(error.description());
        box.exec();
        return true;
    }
    if (!image)
        return false;
    if (onPastedImage)
        onPastedImage(*image);
    else
        m_panel->textView()->insertTypedText(image->path);
    return true;
}

void ComposerSurface::insertPaths(const QList<QUrl> &urls)
{
    QStringList paths;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            paths.append(PromptAttachment::standardizedPath(url.toLocalFile()));
    }
    if (!paths.isEmpty())
        m_panel->textView()->insertTypedText(paths.join(u'\n'));
}

// Height and frame --------------------------------------------------------------------------

double ComposerSurface::maximumVisibleTextHeight() const
{
    const ComposerTextView *textView = m_panel->textView();
    const QFontMetricsF metrics(textView->document()->defaultFont());
    return maxVisibleLines * metrics.lineSpacing() + 2 * textView->document()->documentMargin();
}

Input ComposerSurface::layoutInput() const
{
    ComposerTextView *textView = m_panel->textView();
    Input input;
    input.mode = m_mode;
    input.windowWidth = m_panel->width();
    input.scrollContentWidth = textView->viewport()->width();
    const double width = input.scrollContentWidth > 0 ? std::trunc(input.scrollContentWidth)
                                                      : fallbackTextWidth(input.mode, input.windowWidth);
    textView->document()->setTextWidth(width);
    input.measuredTextHeight = std::ceil(textView->document()->size().height());
    input.maximumVisibleTextHeight = std::ceil(maximumVisibleTextHeight());
    input.headerIntrinsicHeight = m_panel->headerLabel()->sizeHint().height();
    if (completeLayoutInput)
        completeLayoutInput(input);
    return input;
}

void ComposerSurface::scheduleHeightRecalculation()
{
    if (m_heightRecalculationScheduled)
        return;
    m_heightRecalculationScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_heightRecalculationScheduled = false;
        recalculateHeight();
    });
}

void ComposerSurface::recalculateHeight()
{
    const Input input = layoutInput();
    const LayoutMetrics metrics = compute(input);
    if (m_lastAppliedLayoutMetrics == metrics)
        return;
    m_lastAppliedLayoutMetrics = metrics;

    m_isApplyingAutomaticFrame = true;
    m_panel->applyTextArea(int(metrics.visibleHeight), int(contentToFooterSectionHeight(input)),
                           metrics.showsVerticalScroller);
    m_panel->setMinimumHeight(int(minimumPanelHeight(input)));
    QRect frame = m_panel->geometry();
    const int height = int(std::ceil(metrics.totalHeight));
    if (m_automaticHeightAnchorBottom)
        frame.setTop(*m_automaticHeightAnchorBottom - height + 1);
    frame.setHeight(height);
    m_panel->setGeometry(frame);
    if (metrics.showsVerticalScroller)
        m_panel->textView()->ensureCursorVisible();
    QTimer::singleShot(0, this, [this] { m_isApplyingAutomaticFrame = false; });
}

void ComposerSurface::windowDidMove()
{
    // The window system reports our own frame changes late, sometimes one behind the
    // other; a frame of another height than the last one applied is one of those.
    if (m_isApplyingAutomaticFrame ||
        (m_lastAppliedLayoutMetrics &&
         m_panel->height() != int(std::ceil(m_lastAppliedLayoutMetrics->totalHeight))))
        return;
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    reportFrame();
}

void ComposerSurface::windowDidResize()
{
    reportFrame();
    if (!m_isApplyingAutomaticFrame)
        scheduleHeightRecalculation();
}
