#pragma once

#include <QUrl>
#include <QWidget>

#include <functional>

class ComposerTextView;
class QLabel;
class QPushButton;
class QToolButton;
class QHBoxLayout;

// The floating, borderless composer window. A thin view: it lays out the text view,
// header and footer, draws its rounded background and forwards user gestures through
// the callbacks; the controller decides what they mean. Its background moves it and its
// left and right edges resize it, both through the window system.
class ComposerPanel final : public QWidget {
    Q_OBJECT

public:
    explicit ComposerPanel(bool scratchMode, QWidget *parent = nullptr);

    ComposerTextView *textView() const { return m_textView; }
    QLabel *headerLabel() const { return m_header; }
    QPushButton *submitButton() const { return m_submitButton; }
    QPushButton *cancelButton() const { return m_cancelButton; }
    QHBoxLayout *footerLayout() const { return m_footerLayout; }
    // A widget shown between the text and the footer (the attachment strip or the
    // availability overlay of a scratch composer).
    void setSectionWidget(QWidget *widget);
    // A widget shown above the text while it is visible (the find bar).
    void setTopBarWidget(QWidget *widget);

    // Without a compositor there is no translucency: the rounded shape becomes a mask.
    void setCompositingAvailable(bool available);
    void setDropTargetEmphasis(bool emphasised);
    void setRecordingTint(bool tinted);
    bool showsRecordingTint() const { return m_recordingTint; }
    // Sizes the text area and the section below it; the window height follows.
    void applyTextArea(int visibleTextHeight, int sectionHeight, bool showsVerticalScroller);
    // Where tiling compositors float only windows whose height cannot change (Wayland), the
    // panel's height is fixed to what its content needs, and moves with it.
    void setHeightFixedToContent(bool fixed);
    bool isHeightFixedToContent() const { return m_heightFixedToContent; }
    // The height limits for the height the content needs: at least the layout's minimum, or
    // exactly that height when it is fixed.
    void applyHeightLimits(int minimumHeight, int height);

    std::function<void()> onSubmit;
    std::function<void()> onCancel;
    std::function<void()> onEscape;
    // The user closed the window (window manager or close box), not the program.
    std::function<void()> onUserClose;
    std::function<void()> onMoved;
    std::function<void()> onResized;
    std::function<void(bool)> onActiveChanged;
    // Files dropped on the panel's surface (not on the text), and the drag's hover.
    std::function<void(const QList<QUrl> &)> onFilesDropped;
    std::function<void(bool)> onDropHighlight;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

public:
    // Set by the controller right before it closes the window itself.
    bool isProgrammaticClose = false;

private:
    void updateMask();

    ComposerTextView *m_textView = nullptr;
    QLabel *m_header = nullptr;
    QWidget *m_section = nullptr;
    QPushButton *m_submitButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QToolButton *m_closeButton = nullptr;
    QHBoxLayout *m_footerLayout = nullptr;
    bool m_compositing = true;
    bool m_dropEmphasis = false;
    bool m_recordingTint = false;
    bool m_heightFixedToContent = false;
};
