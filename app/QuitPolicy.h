#pragma once

#include <QObject>

#include <memory>

class ComposerCoordinator;
class InterruptWatcher;
class QuickTaskManager;
class RequestIntake;
class WindowActivationCoordinator;

// How Tarvel ends. Quit asks first when it would stop tasks, cancel waiting editor
// requests or close quick-task composers. Ending answers every waiting request and
// closes the composers before the event loop is left: QApplication::quit() would first
// offer every window a close, which a composer treats as the user's cancel. SIGINT,
// SIGTERM and SIGHUP end Tarvel the same way, without asking.
class QuitPolicy final : public QObject {
    Q_OBJECT

public:
    QuitPolicy(QuickTaskManager &tasks, RequestIntake &intake, ComposerCoordinator &composers,
               WindowActivationCoordinator &activation, QObject *parent = nullptr);
    ~QuitPolicy() override;

    // Asks for confirmation when quitting would stop or cancel something.
    bool shouldTerminate();
    // Asks, then ends.
    void quit();
    // Answers, stops and closes everything; once only.
    void terminate();
    // Ends on the interrupt signals; one watcher per process.
    void endOnInterrupts();

    static QString confirmationDetail(int runningTaskCount, int waitingEditorRequestCount,
                                      int openScratchComposerCount);

Q_SIGNALS:
    // Before anything is answered: request sources stop listening, the tray goes.
    void terminating();

private:
    QuickTaskManager &m_tasks;
    RequestIntake &m_intake;
    ComposerCoordinator &m_composers;
    WindowActivationCoordinator &m_activation;
    std::unique_ptr<InterruptWatcher> m_interrupts;
    bool m_terminated = false;
};
