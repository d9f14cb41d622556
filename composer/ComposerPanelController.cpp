#include "composer/ComposerPanelController.h"

#include "composer/ComposerPanel.h"
#include "composer/ComposerTextView.h"

#include <QAbstractTextDocumentLayout>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLayout>
#include <QMimeData>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QUrl>

#include <cmath>

using namespace ComposerLayout;

ComposerPanelController::ComposerPanelController(std::optional<ComposerRequest> request,
                                                 const QString &initialText, QObject *parent)
    : QObject(parent)
    , m_request(std::move(request))
    , m_panel(std::make_unique<ComposerPanel>(!m_request.has_value()))
{
    ComposerTextView *textView = m_panel->textView();
    textView->setPlainText(initialText);
    textView->moveCursor(QTextCursor::End);
    textView->document()->clearUndoRedoStacks();
    textView->onAttachmentPaste = [this](const QMimeData *data) {
        return handlePaste(data);
    };
    connect(textView, &QTextEdit::textChanged, this, [this] { scheduleHeightRecalculation(); });

    m_panel->onSubmit = [this] {
        submitPressed();
    };
    m_panel->onCancel = [this] {
        cancelPressed();
    };
    m_panel->onEscape = [this] {
        cancelPressed();
    };
    m_panel->onUserClose = [this] {
        cancelPressed();
    };
    m_panel->onMoved = [this] {
        windowDidMove();
    };
    m_panel->onResized = [this] {
        windowDidResize();
    };

    m_panel->resize(initialPanelWidth, 120);
    // Lay the panel out now so the first measurement uses the real text width.
    m_panel->layout()->activate();
    recalculateHeight();
}

ComposerPanelController::~ComposerPanelController() = default;

ComposerPanel *ComposerPanelController::panel() const
{
    return m_panel.get();
}

QString ComposerPanelController::text() const
{
    return m_panel->textView()->toPlainText();
}

void ComposerPanelController::setCompositingAvailable(bool available)
{
    m_panel->setCompositingAvailable(available);
}

void ComposerPanelController::showWindow()
{
    m_panel->show();
    m_panel->raise();
    m_panel->textView()->setFocus(Qt::ActiveWindowFocusReason);
    scheduleHeightRecalculation();
}

void ComposerPanelController::completeInitialPlacement()
{
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    m_isFramePersistenceEnabled = true;
    if (isScratch() && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
}

void ComposerPanelController::submitPressed()
{
    if (m_delegate)
        m_delegate->composerPanelControllerDidSubmit(this, text(), m_request);
}

void ComposerPanelController::cancelPressed()
{
    if (m_delegate)
        m_delegate->composerPanelControllerDidCancel(this, m_request);
}

void ComposerPanelController::closeProgrammatically()
{
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
    m_panel->isProgrammaticClose = true;
    m_panel->close();
    Q_EMIT closed();
}

double ComposerPanelController::maximumVisibleTextHeight() const
{
    const ComposerTextView *textView = m_panel->textView();
    const QFontMetricsF metrics(textView->document()->defaultFont());
    return maxVisibleLines * metrics.lineSpacing() + 2 * textView->document()->documentMargin();
}

ComposerLayout::Input ComposerPanelController::layoutInput() const
{
    ComposerTextView *textView = m_panel->textView();
    Input input;
    input.mode = isScratch() ? Mode::scratch : Mode::editorRequest;
    input.windowWidth = m_panel->width();
    input.scrollContentWidth = textView->viewport()->width();
    const double width = input.scrollContentWidth > 0 ? std::trunc(input.scrollContentWidth)
                                                      : fallbackTextWidth(input.mode, input.windowWidth);
    textView->document()->setTextWidth(width);
    input.measuredTextHeight = std::ceil(textView->document()->size().height());
    input.maximumVisibleTextHeight = std::ceil(maximumVisibleTextHeight());
    input.headerIntrinsicHeight = m_panel->headerLabel()->sizeHint().height();
    input.scratchReady = true;
    return input;
}

void ComposerPanelController::scheduleHeightRecalculation()
{
    if (m_heightRecalculationScheduled)
        return;
    m_heightRecalculationScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_heightRecalculationScheduled = false;
        recalculateHeight();
    });
}

void ComposerPanelController::recalculateHeight()
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

bool ComposerPanelController::handlePaste(const QMimeData *data)
{
    QStringList paths;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile())
            paths.append(QDir::cleanPath(QFileInfo(url.toLocalFile()).absoluteFilePath()));
    }
    if (paths.isEmpty())
        return false;
    // An editor request has no attachments: files become their paths, one per line.
    m_panel->textView()->insertTypedText(paths.join(u'\n'));
    return true;
}

void ComposerPanelController::windowDidMove()
{
    // The window system reports our own frame changes late, sometimes one behind the
    // other; a frame of another height than the last one applied is one of those.
    if (m_isApplyingAutomaticFrame ||
        (m_lastAppliedLayoutMetrics &&
         m_panel->height() != int(std::ceil(m_lastAppliedLayoutMetrics->totalHeight))))
        return;
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
}

void ComposerPanelController::windowDidResize()
{
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
    if (!m_isApplyingAutomaticFrame)
        scheduleHeightRecalculation();
}
