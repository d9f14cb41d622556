#include "app/QuitPolicy.h"

#include "app/ComposerCoordinator.h"
#include "app/RequestIntake.h"
#include "app/WindowActivationCoordinator.h"
#include "core/AppConstants.h"
#include "platform/InterruptWatcher.h"
#include "quicktasks/QuickTaskManager.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPushButton>

namespace {
QString plural(int count, const QString &singular, const QString &pluralForm)
{
    return count == 1 ? singular : pluralForm;
}
} // namespace

QuitPolicy::QuitPolicy(QuickTaskManager &tasks, RequestIntake &intake, ComposerCoordinator &composers,
                       WindowActivationCoordinator &activation, QObject *parent)
    : QObject(parent)
    , m_tasks(tasks)
    , m_intake(intake)
    , m_composers(composers)
    , m_activation(activation)
{
    connect(qApp, &QCoreApplication::aboutToQuit, this, &QuitPolicy::terminate);
}

QuitPolicy::~QuitPolicy() = default;

bool QuitPolicy::shouldTerminate()
{
    const std::optional<ComposerRequest> &onScreen = m_composers.currentRequest();
    const int running = m_tasks.runningSessionCount();
    const int waiting =
        (onScreen ? 1 : 0) +
        m_intake.waitingRequestCount(onScreen ? std::optional<QUuid>(onScreen->id) : std::nullopt);
    const int scratch = int(m_composers.scratchComposers().size());
    if (running < 1 && waiting < 1 && scratch < 1)
        return true;
    QMessageBox box(QMessageBox::Warning, AppConstants::appName, QStringLiteral("Quit Tarvel?"));
    box.setObjectName(QStringLiteral("QuitConfirmation"));
    box.setInformativeText(confirmationDetail(running, waiting, scratch));
    QPushButton *quitButton = box.addButton(QStringLiteral("Quit"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(quitButton);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.show();
    m_activation.requestWindowActivation(&box);
    box.exec();
    return box.clickedButton() == quitButton;
}

void QuitPolicy::quit()
{
    if (!shouldTerminate())
        return;
    terminate();
    QCoreApplication::exit(0);
}

void QuitPolicy::terminate()
{
    if (m_terminated)
        return;
    m_terminated = true;
    m_composers.stopServingRequests();
    Q_EMIT terminating();
    m_intake.cancelPendingEditorRequestsOnTermination();
    m_tasks.stopAllTasksForTermination();
    m_composers.closeAllForTermination();
}

void QuitPolicy::endOnInterrupts()
{
    m_interrupts = std::make_unique<InterruptWatcher>();
    connect(m_interrupts.get(), &InterruptWatcher::interrupted, this, [this] {
        terminate();
        QCoreApplication::exit(0);
    });
}

QString QuitPolicy::confirmationDetail(int runningTaskCount, int waitingEditorRequestCount,
                                       int openScratchComposerCount)
{
    QStringList lines;
    if (runningTaskCount >= 1) {
        lines.append(QStringLiteral("%1 running %2 will be stopped.")
                         .arg(runningTaskCount)
                         .arg(plural(runningTaskCount, QStringLiteral("task"), QStringLiteral("tasks"))));
    }
    if (waitingEditorRequestCount >= 1) {
        lines.append(QStringLiteral("%1 waiting editor %2 will be cancelled.")
                         .arg(waitingEditorRequestCount)
                         .arg(plural(waitingEditorRequestCount, QStringLiteral("request"),
                                     QStringLiteral("requests"))));
    }
    if (openScratchComposerCount >= 1) {
        lines.append(QStringLiteral("%1 open quick-task %2 will be closed.")
                         .arg(openScratchComposerCount)
                         .arg(plural(openScratchComposerCount, QStringLiteral("composer"),
                                     QStringLiteral("composers"))));
    }
    return lines.join(u'\n');
}
