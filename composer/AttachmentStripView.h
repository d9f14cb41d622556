#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "core/PromptAttachment.h"

#include <QList>
#include <QRect>
#include <QUrl>
#include <QUuid>
#include <QWidget>

class AttachmentPillView;

// The scratch composer's attachments as a wrapping row of pills, or, with none, a dashed
// box inviting a drop. It takes file drops itself and reports them; the owner decides
// what becomes an attachment and hands the result back through setAttachments().
class AttachmentStripView final : public QWidget {
    Q_OBJECT

public:
    static constexpr int horizontalSpacing = 6;
    static constexpr int verticalSpacing = 6;
    static constexpr int pillHeight = 22;
    static constexpr int placeholderHeight = 24;
    static constexpr int maxPillWidth = 220;

    explicit AttachmentStripView(QWidget *parent = nullptr);

    const QList<PromptAttachment> &attachments() const { return m_attachments; }
    void setAttachments(const QList<PromptAttachment> &attachments);
    // One per attachment, in order.
    const QList<AttachmentPillView *> &pillViews() const { return m_pillViews; }

    QuickTaskCLIBackend backend() const { return m_backend; }
    // The placeholder names folders only for backends that can take them.
    void setBackend(QuickTaskCLIBackend backend);

    bool showsDropPlaceholder() const { return m_showsDropPlaceholder; }
    void setShowsDropPlaceholder(bool shows);

    QString placeholderText() const { return placeholderText(m_backend); }
    QString highlightedPlaceholderText() const { return highlightedPlaceholderText(m_backend); }
    static QString placeholderText(QuickTaskCLIBackend backend);
    static QString highlightedPlaceholderText(QuickTaskCLIBackend backend);

    // True while a drag with files hovers over the strip.
    bool isDropTargetHighlighted() const { return m_isDropTargetHighlighted; }

    // The height the strip needs at this width: the wrapped pill rows, else the
    // placeholder row when it is shown, else 0.
    int measuredHeight(int width) const;
    // Where pills of these preferred widths go in a strip of this width: left to right,
    // wrapping onto new rows; a pill wider than the strip is narrowed to it.
    static QList<QRect> wrappedPillFrames(const QList<int> &preferredWidths, int width);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return measuredHeight(width); }

Q_SIGNALS:
    // Only local file URLs; never empty.
    void fileUrlsDropped(const QList<QUrl> &urls);
    void dropTargetHighlighted(bool highlighted);
    void removeAttachmentRequested(const QUuid &id);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QList<int> preferredPillWidths() const;
    void layoutPills();
    void setDropTargetHighlighted(bool highlighted);
    bool showsPlaceholderBox() const { return m_attachments.isEmpty() && m_showsDropPlaceholder; }

    QList<PromptAttachment> m_attachments;
    QList<AttachmentPillView *> m_pillViews;
    QuickTaskCLIBackend m_backend = QuickTaskCLIBackend::codex;
    bool m_showsDropPlaceholder = true;
    bool m_isDropTargetHighlighted = false;
};
