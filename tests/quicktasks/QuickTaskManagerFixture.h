#pragma once

#include "core/FileStore.h"
#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"
#include "fakebackends/FakeBackendSetup.h"
#include "platform/FileOpener.h"
#include "platform/UserNotificationCenter.h"
#include "quicktasks/QuickTaskManager.h"
#include "support/ManualClock.h"

#include <QFuture>
#include <QtTest>

#include <memory>
#include <optional>

class RecordingFileOpener final : public FileOpener {
public:
    bool openInDefaultApplication(const QString &path) override
    {
        opened.append(path);
        return true;
    }
    QStringList opened;
};

class RecordingNotificationCenter final : public UserNotificationCenter {
public:
    void registerCategory(const QString &, const QList<UserNotificationAction> &) override {}
    void setResponseHandler(ResponseHandler) override {}
    void post(const UserNotificationRequest &request) override { posted.append(request); }
    void remove(const QString &) override {}

    QList<UserNotificationRequest> posted;
};

// A manager over the private profile of the fake backends.
struct QuickTaskManagerFixture : FakeBackendSetup {
    explicit QuickTaskManagerFixture(QuickTaskDesktopServices services = {})
    {
        workingDirectory = environment.path(QStringLiteral("project"));
        QDir().mkpath(workingDirectory);
        defaults = std::make_unique<UserDefaults>(environment.path(QStringLiteral("defaults.ini")));
        errorLog = std::make_unique<ErrorLogManager>(clock);
        manager = std::make_unique<QuickTaskManager>(QuickTaskStore(), *errorLog, *defaults, clock, services);
        manager->noteWorkingDirectory(workingDirectory);
        manager->load();
    }

    // Starts a task and waits for its launch; the session's id, or the error's description.
    std::optional<QUuid> start(QuickTaskCLIBackend backend,
                               const QString &prompt = QStringLiteral("Fix the build"),
                               const QList<PromptAttachment> &attachments = {}, QString *error = nullptr)
    {
        QFuture<QUuid> future =
            manager->startTask(prompt, QuickTaskSourceContext{QStringLiteral("xterm"), 4242}, attachments,
                               QuickTaskPreset{QStringLiteral("gpt-5.5"), QStringLiteral("high")}, backend);
        if (!QTest::qWaitFor([&] { return future.isFinished(); }, 10000))
            return std::nullopt;
        try {
            return future.result();
        } catch (const TarvelError &failure) {
            if (error)
                *error = failure.description();
            return std::nullopt;
        }
    }

    QuickTaskSession session(const QUuid &id) const
    {
        return manager->session(id).value_or(QuickTaskSession{});
    }

    bool waitUntilFinished(const QUuid &id, int timeout = 10000)
    {
        return QTest::qWaitFor(
            [&] {
                const std::optional<QuickTaskSession> found = manager->session(id);
                return found && !found->isRunning();
            },
            timeout);
    }

    QByteArray read(const QString &path) const
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    ManualClock clock{QDateTime(QDate(2026, 3, 1), QTime(9, 15, 42), Qt::UTC)};
    QString workingDirectory;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<ErrorLogManager> errorLog;
    std::unique_ptr<QuickTaskManager> manager;
};
