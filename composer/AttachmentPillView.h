#pragma once

#include "core/PromptAttachment.h"

#include <QUuid>
#include <QWidget>

class QAbstractButton;
class QLabel;

// One attachment in the strip: an icon, the file name (elided in the middle, the full
// path as tool tip) and a small remove button, on a capsule background.
class AttachmentPillView final : public QWidget {
    Q_OBJECT

public:
    explicit AttachmentPillView(const PromptAttachment &attachment, QWidget *parent = nullptr);

    const PromptAttachment &attachment() const { return m_attachment; }
    // The file name, or the whole path for a root folder.
    const QString &title() const { return m_title; }
    // The title as shown at the current width (elided when it does not fit).
    QString displayedTitle() const;
    QAbstractButton *removeButton() const { return m_removeButton; }

    // The width that shows the whole title, but not more than maximum.
    int preferredWidth(int maximum) const;

Q_SIGNALS:
    void removeRequested(const QUuid &id);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void layoutContent();

    PromptAttachment m_attachment;
    QString m_title;
    QLabel *m_iconLabel = nullptr;
    QLabel *m_titleLabel = nullptr;
    QAbstractButton *m_removeButton = nullptr;
};
