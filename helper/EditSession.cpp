#include "helper/EditSession.h"

#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/DataFolderMove.h"
#include "core/FileStore.h"
#include "core/RequestFileIO.h"
#include "core/TarvelError.h"
#include "helper/EditedFile.h"
#include "platform/DistributedNotificationPoster.h"
#include "platform/RunningApplicationWatcher.h"
#include "platform/SourceApplicationLocator.h"

#include <QDir>

#include <chrono>
#include <cstdio>

namespace {

constexpr std::chrono::seconds kApplicationStartTimeout{5};

void printError(const QString &message)
{
    std::fputs(QStringLiteral("tarvel-edit: %1\n").arg(message).toLocal8Bit().constData(), stderr);
}

} // namespace

EditSession::EditSession(EditedFile &file, Services services, QObject *parent)
    : QObject(parent)
    , m_file(file)
    , m_services(std::move(services))
{
    m_applicationStartTimer.setSingleShot(true);
    m_applicationStartTimer.setInterval(kApplicationStartTimeout);
    connect(&m_applicationStartTimer, &QTimer::timeout, this, &EditSession::applicationStartTimedOut);
    connect(&m_responsesWatcher, &QFileSystemWatcher::directoryChanged, this, &EditSession::checkForResponse);
    connect(m_services.applicationWatcher.get(), &RunningApplicationWatcher::applicationDidLaunch, this,
            &EditSession::applicationDidLaunch);
    connect(m_services.applicationWatcher.get(), &RunningApplicationWatcher::applicationDidTerminate, this,
            &EditSession::applicationDidTerminate);
}

EditSession::~EditSession() = default;

void EditSession::start()
{
    const QString cwd = QDir::currentPath();
    const SourceApplication source = SourceApplicationLocator::locate();
    m_request = ComposerRequest{QUuid::createUuid(),
                                Clock::system().now(),
                                cwd.isEmpty() ? std::nullopt : std::optional<QString>(cwd),
                                m_file.text(),
                                m_file.absolutePath(),
                                source.identifier,
                                source.pid,
                                source.activationToken};

    // Watch before the request exists: an answer cannot come earlier than that.
    try {
        // An old ~/Tarvel goes to the data folder before this makes its request folders there.
        DataFolderMove::fromHomeFolder();
        FileStore::ensureDirectoriesExist();
    } catch (const UnsafeFolderError &error) {
        // Nothing is written into a folder someone else could read or answer from.
        printError(error.description());
        m_ending = Ending::useFallbackEditor;
        m_fallbackReason = QStringLiteral("the request folders are not private");
        finish(0);
        return;
    }
    m_responsesWatcher.addPath(FileStore::responsesDirectory());
    RequestFileIO::writeRequest(m_request);
    m_state = State::waitingForResponse;

    if (!m_services.poster->isAvailable() || !m_services.applicationWatcher->canObserve()) {
        useFallbackEditor(QStringLiteral("no session bus"));
        return;
    }
    m_services.poster->post(AppConstants::requestNotificationName);
    if (m_services.applicationWatcher->isRunning()) {
        checkForResponse();
        return;
    }

    const ApplicationLauncher::Outcome launch = m_services.launchApplication();
    if (!launch.started) {
        useFallbackEditor(launch.reason);
        return;
    }
    waitForApplication(
        QStringLiteral("Tarvel did not start within %1 seconds").arg(kApplicationStartTimeout.count()));
    checkForResponse();
}

void EditSession::interrupt(int signalNumber)
{
    if (m_state == State::finished)
        return;
    try {
        if (m_state != State::idle) {
            // An answer that has arrived is discarded; otherwise the request is withdrawn,
            // and an answer that slips in meanwhile is not left behind either.
            if (!RequestFileIO::responseExists(m_request.id))
                RequestFileIO::removeRequest(m_request.id);
            RequestFileIO::removeResponse(m_request.id);
        }
    } catch (const TarvelError &error) {
        printError(error.description());
    }
    finish(128 + signalNumber);
}

void EditSession::applicationDidLaunch()
{
    if (m_state != State::waitingForApplication)
        return;
    m_applicationStartTimer.stop();
    m_state = State::waitingForResponse;
    m_services.poster->post(AppConstants::requestNotificationName);
    checkForResponse();
}

void EditSession::applicationDidTerminate()
{
    if (m_state != State::waitingForResponse)
        return;
    // A quitting application answers first, so a response is already on disk by now.
    if (RequestFileIO::responseExists(m_request.id)) {
        collectResponse();
        return;
    }
    // It crashed. The request is still queued on disk, so a copy started again soon
    // (by the user or the session) serves it. The helper does not restart it itself:
    // a request that crashes the application would only crash it again.
    waitForApplication(QStringLiteral("Tarvel quit without answering"));
}

void EditSession::applicationStartTimedOut()
{
    if (m_state != State::waitingForApplication)
        return;
    if (m_services.applicationWatcher->isRunning())
        applicationDidLaunch();
    else
        useFallbackEditor(m_reasonIfNoApplication);
}

void EditSession::waitForApplication(const QString &reasonIfNone)
{
    m_state = State::waitingForApplication;
    m_reasonIfNoApplication = reasonIfNone;
    m_applicationStartTimer.start();
}

void EditSession::checkForResponse()
{
    if ((m_state == State::waitingForApplication || m_state == State::waitingForResponse) &&
        RequestFileIO::responseExists(m_request.id))
        collectResponse();
}

void EditSession::collectResponse()
{
    ComposerResponse response;
    try {
        response = RequestFileIO::readResponse(m_request.id);
    } catch (const TarvelError &error) {
        try {
            RequestFileIO::removeResponse(m_request.id);
        } catch (const TarvelError &) {
        }
        finish(1, QStringLiteral("The answer from Tarvel could not be read. %1").arg(error.description()));
        return;
    }
    try {
        RequestFileIO::removeResponse(m_request.id);
    } catch (const TarvelError &error) {
        printError(error.description());
    }

    if (response.disposition == ComposerResponse::Disposition::cancelled) {
        finish(1, QStringLiteral("editing cancelled"));
        return;
    }
    if (!response.updatedText) {
        finish(1, QStringLiteral("Tarvel answered without a text, so the file was left unchanged."));
        return;
    }
    try {
        m_file.replaceText(*response.updatedText);
    } catch (const TarvelError &error) {
        finish(1, error.description());
        return;
    }
    finish(0);
}

void EditSession::useFallbackEditor(const QString &reason)
{
    // The application may have answered after all.
    if (RequestFileIO::responseExists(m_request.id)) {
        collectResponse();
        return;
    }
    try {
        RequestFileIO::removeRequest(m_request.id);
    } catch (const TarvelError &error) {
        printError(error.description());
    }
    m_ending = Ending::useFallbackEditor;
    m_fallbackReason = reason;
    finish(0);
}

void EditSession::finish(int exitCode, const QString &message)
{
    if (!message.isEmpty())
        printError(message);
    m_applicationStartTimer.stop();
    m_exitCode = exitCode;
    m_state = State::finished;
    Q_EMIT finished();
}
