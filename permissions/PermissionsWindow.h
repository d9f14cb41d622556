#pragma once

#include "permissions/PermissionDescriptor.h"

#include <QList>
#include <QWidget>

class PermissionCenter;
class QLabel;
class QMessageBox;
class QVBoxLayout;

// The permissions Tarvel relies on, one row each with its state and action, under a summary.
// Asks again whenever it is shown, when Tarvel becomes active again and after each action, since
// the answers change in the system's settings.
class PermissionsWindow final : public QWidget {
    Q_OBJECT

public:
    explicit PermissionsWindow(PermissionCenter &center, QWidget *parent = nullptr);

    void refresh();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void showDescriptors(const QList<PermissionDescriptor> &descriptors);
    QWidget *makeRow(const PermissionDescriptor &descriptor);
    QString statusText(PermissionDescriptor::Status status) const;
    void perform(const PermissionDescriptor &descriptor);
    void showWhereToLook(const QString &sentence);

    PermissionCenter &m_center;
    QLabel *m_summaryTitle = nullptr;
    QLabel *m_summaryDetail = nullptr;
    QVBoxLayout *m_permissionRows = nullptr;
    QVBoxLayout *m_onDemandRows = nullptr;
    QMessageBox *m_message = nullptr;
    // Answers of an earlier refresh that arrive late are dropped.
    quint64 m_generation = 0;
};
