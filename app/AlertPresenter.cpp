#include "app/AlertPresenter.h"

#include "app/KeyboardGate.h"
#include "composer/UnrequestedWindowGuard.h"
#include "core/AppConstants.h"

#include <QMessageBox>

#include <memory>

namespace {

QMessageBox *makeAlert(QMessageBox::Icon icon, const QString &message, const QString &informativeText)
{
    auto *box = new QMessageBox(icon, AppConstants::appName, message);
    box->setInformativeText(informativeText);
    box->setWindowFlag(Qt::WindowStaysOnTopHint);
    return box;
}

void showModal(QMessageBox::Icon icon, const QString &message, const QString &informativeText)
{
    const std::unique_ptr<QMessageBox> box(makeAlert(icon, message, informativeText));
    box->exec();
}

} // namespace

AlertPresenter::AlertPresenter(KeyboardGate &keyboard, QObject *parent)
    : QObject(parent)
    , m_keyboard(keyboard)
{
}

void AlertPresenter::showWarning(const QString &message, const QString &informativeText)
{
    showModal(QMessageBox::Warning, message, informativeText);
}

void AlertPresenter::showNotice(const QString &message, const QString &informativeText)
{
    showModal(QMessageBox::Information, message, informativeText);
}

void AlertPresenter::presentUnrequested(const QString &message, const QString &informativeText)
{
    const QString key = message + u'\n' + informativeText;
    if (m_upOrWaiting.contains(key))
        return;
    m_upOrWaiting.insert(key);
    m_keyboard.whenKeyboardFree(this, [this, key, message, informativeText] {
        QMessageBox *box = makeAlert(QMessageBox::Warning, message, informativeText);
        box->setObjectName(QStringLiteral("UnrequestedAlert"));
        box->setAttribute(Qt::WA_DeleteOnClose);
        UnrequestedWindowGuard::install(box);
        connect(box, &QObject::destroyed, this, [this, key] { m_upOrWaiting.remove(key); });
        // Not modal: a composer that comes up while it is on screen takes the keyboard as usual.
        box->show();
        box->raise();
        box->activateWindow();
    });
}
