#pragma once

#include "composer/ComposerLayout.h"
#include "core/ComposerRequest.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class ComposerPanel;
class ComposerPanelController;
class QMimeData;

// How a composer hands its outcome back: the application delegate implements it.
class ComposerPanelControllerDelegate {
public:
    virtual ~ComposerPanelControllerDelegate() = default;
    virtual void composerPanelControllerDidSubmit(ComposerPanelController *controller, const QString &text,
                                                  const std::optional<ComposerRequest> &request) = 0;
    virtual void composerPanelControllerDidCancel(ComposerPanelController *controller,
                                                  const std::optional<ComposerRequest> &request) = 0;
};

// Owns one composer panel. With a request it edits that request's text for the
// waiting helper; without one it is a free-standing scratch composer.
class ComposerPanelController final : public QObject {
    Q_OBJECT

public:
    ComposerPanelController(std::optional<ComposerRequest> request, const QString &initialText,
                            QObject *parent = nullptr);
    ~ComposerPanelController() override;

    bool isScratch() const { return !m_request.has_value(); }
    const std::optional<ComposerRequest> &request() const { return m_request; }
    ComposerPanel *panel() const;
    QString text() const;

    void setDelegate(ComposerPanelControllerDelegate *delegate) { m_delegate = delegate; }
    void setCompositingAvailable(bool available);

    // Shows the window and gives the text the keyboard focus.
    void showWindow();
    // Called once the window has its first position: from now on the bottom edge
    // stays put while the height follows the text, and a scratch frame is remembered.
    void completeInitialPlacement();
    void submitPressed();
    void cancelPressed();
    // Closes the window without treating it as a cancel.
    void closeProgrammatically();

    const std::optional<ComposerLayout::LayoutMetrics> &lastAppliedLayoutMetrics() const
    {
        return m_lastAppliedLayoutMetrics;
    }
    // The height rule, applied at once (normally deferred to the event loop).
    void recalculateHeight();
    double maximumVisibleTextHeight() const;

    std::function<void(const QRect &)> onScratchFrameChanged;

Q_SIGNALS:
    void closed();

private:
    void scheduleHeightRecalculation();
    bool handlePaste(const QMimeData *data);
    void windowDidMove();
    void windowDidResize();
    ComposerLayout::Input layoutInput() const;

    std::optional<ComposerRequest> m_request;
    ComposerPanelControllerDelegate *m_delegate = nullptr;
    std::unique_ptr<ComposerPanel> m_panel;
    std::optional<ComposerLayout::LayoutMetrics> m_lastAppliedLayoutMetrics;
    std::optional<int> m_automaticHeightAnchorBottom;
    bool m_heightRecalculationScheduled = false;
    bool m_isApplyingAutomaticFrame = false;
    bool m_isFramePersistenceEnabled = false;
};
