#include "app/Doctor.h"

#include "backends/BackendProfiles.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/HunspellSpellChecker.h"
#include "editing/SpellCheckService.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "editor_integration/EditorIntegrationTexts.h"
#include "platform/CommandSpeechEngine.h"
#include "platform/SpeechRecognizer.h"
#include "platform/UnixSocket.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "remote/RemoteRequestServer.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

#include <cerrno>
#include <unistd.h>

namespace Doctor {
namespace {

using Severity = DiagnosticFinding::Severity;

const QString kSetUpEditor =
    QStringLiteral("Run \u201ctarvel editor-setup install\u201d, then open a new terminal.");

QString severityName(Severity severity)
{
    switch (severity) {
    case Severity::ok:
        return QStringLiteral("ok");
    case Severity::warning:
        return QStringLiteral("warning");
    case Severity::problem:
        return QStringLiteral("problem");
    }
    return {};
}

bool isExecutableFile(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

QString canonical(const QString &path)
{
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? QFileInfo(path).absoluteFilePath() : resolved;
}

// What the shell's start-up file says, as `tarvel editor-setup status` puts it. This shell's
// own variable decides whether prompt editing works; the file decides new terminals.
DiagnosticFinding editorSetupFinding(const QString &applicationDirectory)
{
    const QString subject = QStringLiteral("Editor set-up");
    const EditorIntegrationManager manager(applicationDirectory);
    const std::optional<EditorIntegrationStatus> status = manager.status();
    if (!status)
        return {subject, Severity::warning, QStringLiteral("There is no home folder to set up."),
                QStringLiteral("Set HOME.")};
    const QString shell = QStringLiteral("Shell %1; ").arg(status->location.shellName);
    if (status->kind == EditorIntegrationStatus::Kind::installed) {
        // The shim looks beside the installation that wrote it first; one written by another
        // copy of Tarvel (a build folder, an older install) leads there.
        QFile shim(status->location.helperScriptURL.toLocalFile());
        if (shim.open(QIODevice::ReadOnly) && shim.readAll() != manager.helperScriptContents().toUtf8())
            return {subject, Severity::warning,
                    shell + EditorIntegrationTexts::statusLine(*status) +
                        QStringLiteral(", but the shim was written by another Tarvel installation than "
                                       "this one."),
                    kSetUpEditor};
        return {subject, Severity::ok, shell + EditorIntegrationTexts::statusLine(*status) + u'.', {}};
    }
    return {subject, Severity::warning, shell + EditorIntegrationTexts::statusLine(*status) + u'.',
            kSetUpEditor};
}

// Dictation: a recogniser that can run (the user's command, else the built-in one), and
// something to record from.
QList<DiagnosticFinding> dictationFindings()
{
    const QString command = AppSettings(UserDefaults::standard()).speechRecognizerCommand();
    const std::unique_ptr<SpeechRecognizer> recognizer = SpeechRecognizer::create({[command] {
        return command;
    }});
    QList<DiagnosticFinding> findings{recognizerCommandFinding(command)};
    // A command's own finding says whether it can run.
    if (command.isEmpty()) {
        const QString reason = recognizer->unavailableReason();
        if (reason.isEmpty())
            findings.append({QStringLiteral("Speech recognition"),
                             Severity::ok,
                             QStringLiteral("The built-in recogniser can run."),
                             {}});
        else
            findings.append({QStringLiteral("Speech recognition"), Severity::warning,
                             QStringLiteral("Dictation cannot run."), reason});
    }
    if (recognizer->microphoneAccess() == SpeechRecognizer::Access::authorized)
        findings.append({QStringLiteral("Microphone"),
                         Severity::ok,
                         QStringLiteral("An audio input device is there."),
                         {}});
    else
        findings.append({QStringLiteral("Microphone"), Severity::warning,
                         QStringLiteral("No audio input device was found, so dictation cannot record."),
                         QStringLiteral("Connect a microphone, and check that the sound server (PulseAudio "
                                        "or PipeWire) is running.")});
    return findings;
}

QString modelCount(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 model") : QStringLiteral("%1 models").arg(count);
}

DiagnosticFinding modelFinding(const BackendProfile &profile)
{
    const QString subject = profile.rawValue() + QStringLiteral(" models");
    const std::optional<QString> source = profile.modelSourcePath();
    const qsizetype count = profile.availableModels().size();
    if (!source)
        return {subject, Severity::ok, QStringLiteral("%1 built in.").arg(modelCount(count)), {}};
    const QString shown = QDir::toNativeSeparators(*source);
    if (QFileInfo::exists(*source) && count > 0)
        return {subject, Severity::ok, QStringLiteral("%1 read from %2.").arg(modelCount(count), shown), {}};
    if (!profile.needsModelsForQuickTasks())
        return {subject,
                Severity::ok,
                QStringLiteral("No models listed in %1; %2 uses its own default.")
                    .arg(shown, profile.displayTitle()),
                {}};
    return {subject, Severity::warning,
            QStringLiteral("No models could be read from %1, so quick tasks cannot choose one.").arg(shown),
            QStringLiteral("Run %1 once: it writes that file itself.").arg(profile.displayTitle())};
}

QList<DiagnosticFinding> backendFindings()
{
    QList<DiagnosticFinding> findings;
    const QStringList directories = TaskCLIExecutableLocator::candidateDirectories();
    // A diagnosis asks each tool now, whatever an earlier check found.
    const QuickTaskCLIInstallationAvailabilities availabilities =
        TaskCLIExecutableLocator::checkInstallationAvailabilities(
            TaskCLIExecutableLocator::RememberedChecks::rerun);
    bool anyAvailable = false;
    for (const BackendProfile *profile : BackendProfiles::all()) {
        const QString name = profile->rawValue();
        const QuickTaskCLIInstallationAvailability availability = availabilities.value(profile->backend());
        if (availability.isAvailable()) {
            anyAvailable = true;
            QString path;
            try {
                path = TaskCLIExecutableLocator::resolveExecutableURL(profile->backend(), directories);
            } catch (const TarvelError &) {
                // Found a moment ago by the check; a path that vanished since is left unsaid.
            }
            findings.append(
                {name,
                 Severity::ok,
                 QStringLiteral("%1 at %2 answered its version check (%3).")
                     .arg(profile->displayTitle(), QDir::toNativeSeparators(path), availability.version()),
                 {}});
        } else {
            findings.append({name, Severity::warning, availability.message(),
                             QStringLiteral("Install %1, or point %2 at it.")
                                 .arg(profile->displayTitle(), profile->overrideVariable())});
        }

        findings.append(modelFinding(*profile));
    }
    if (!anyAvailable)
        findings.append({QStringLiteral("Quick tasks"), Severity::warning,
                         QStringLiteral("No backend is available, so quick tasks and dictated drafts "
                                        "cannot run."),
                         QStringLiteral("Install codex, claude or opencode.")});
    return findings;
}

} // namespace

DiagnosticFinding editorVariableFinding(const QString &visual, const QString &editor,
                                        const QString &thisHelper, const QString &shim)
{
    const QString subject = QStringLiteral("Editor");
    // The assistants take VISUAL first, then EDITOR.
    const QString variable = visual.isEmpty() ? QStringLiteral("EDITOR") : QStringLiteral("VISUAL");
    const QString command = visual.isEmpty() ? editor : visual;
    if (command.trimmed().isEmpty())
        return {subject, Severity::problem,
                QStringLiteral("Neither VISUAL nor EDITOR is set in this shell, so the assistants open "
                               "their own editor, not Tarvel."),
                kSetUpEditor};
    const QStringList words = QProcess::splitCommand(command);
    const QString program = words.isEmpty() ? command : words.constFirst();
    if (!QFileInfo(program).fileName().contains(QStringLiteral("tarvel-edit")))
        return {subject, Severity::problem,
                QStringLiteral("%1 is \u201c%2\u201d, so the assistants open that instead of Tarvel.")
                    .arg(variable, command),
                kSetUpEditor};
    const QString path = program.contains(u'/') ? program : QStandardPaths::findExecutable(program);
    if (path.isEmpty() || !isExecutableFile(path))
        return {subject, Severity::problem,
                QStringLiteral("%1 names %2, which is not an executable file.").arg(variable, program),
                kSetUpEditor};
    if (canonical(path) == canonical(shim))
        return {
            subject,
            Severity::ok,
            QStringLiteral("%1 runs Tarvel's editor hook %2.").arg(variable, QDir::toNativeSeparators(path)),
            {}};
    if (canonical(path) == canonical(thisHelper))
        return {subject,
                Severity::ok,
                QStringLiteral("%1 runs this installation's tarvel-edit.").arg(variable),
                {}};
    return {subject, Severity::warning,
            QStringLiteral("%1 runs %2, which belongs to another Tarvel installation than this one (%3).")
                .arg(variable, QDir::toNativeSeparators(path), QDir::toNativeSeparators(thisHelper)),
            kSetUpEditor};
}

DiagnosticFinding dataFolderFinding(const QString &path)
{
    const QString subject = QStringLiteral("Data folder");
    const QFileInfo folder(path);
    const QString shown = QDir::toNativeSeparators(path);
    if (!folder.exists()) {
        QFileInfo parent(folder.absolutePath());
        while (!parent.exists() && parent.absoluteFilePath() != parent.absolutePath())
            parent = QFileInfo(parent.absolutePath());
        if (parent.isDir() && parent.isWritable())
            return {subject, Severity::ok, QStringLiteral("%1 is made at first use.").arg(shown), {}};
        return {subject, Severity::problem,
                QStringLiteral("%1 cannot be made: %2 is not writable.")
                    .arg(shown, QDir::toNativeSeparators(parent.absoluteFilePath())),
                QStringLiteral("Make %1 writable, or point XDG_DATA_HOME at a folder you own.")
                    .arg(QDir::toNativeSeparators(parent.absoluteFilePath()))};
    }
    if (!folder.isDir() || !folder.isWritable() || folder.ownerId() != ::getuid())
        return {subject, Severity::problem,
                QStringLiteral("%1 is not a folder of yours that Tarvel can write to.").arg(shown),
                QStringLiteral("Move it aside; Tarvel makes a new one.")};
    const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                            QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                            QFileDevice::WriteOther | QFileDevice::ExeOther;
    if (folder.permissions() & others)
        return {subject, Severity::warning,
                QStringLiteral("%1 can be read by other users, and it holds your prompts.").arg(shown),
                QStringLiteral("Run \u201cchmod 700 %1\u201d.").arg(shown)};
    return {subject, Severity::ok, QStringLiteral("%1 is private to you.").arg(shown), {}};
}

DiagnosticFinding recognizerCommandFinding(const QString &command)
{
    const QString subject = QStringLiteral("Recogniser command");
    if (command.trimmed().isEmpty())
        return {subject,
                Severity::ok,
                QStringLiteral("None is set; dictation uses the built-in recogniser."),
                {}};
    const QString fix = QStringLiteral("fix or clear the command in Preferences (Voice Drafting).");
    const QString program = CommandSpeechEngine::splitCommandLine(command).value(0);
    const QString path = program.contains(u'/') ? program : QStandardPaths::findExecutable(program);
    if (path.isEmpty())
        return {subject, Severity::warning,
                QStringLiteral("\u201c%1\u201d is set, but %2 is not on PATH, so dictation cannot run.")
                    .arg(command, program),
                QStringLiteral("Install %1, or %2").arg(program, fix)};
    if (!QFileInfo::exists(path))
        return {subject, Severity::warning,
                QStringLiteral("\u201c%1\u201d is set, but %2 does not exist, so dictation cannot run.")
                    .arg(command, QDir::toNativeSeparators(path)),
                QStringLiteral("Install it there, or %1").arg(fix)};
    if (!isExecutableFile(path))
        return {
            subject, Severity::warning,
            QStringLiteral(
                "\u201c%1\u201d is set, but %2 is not an executable file, so dictation cannot run.")
                .arg(command, QDir::toNativeSeparators(path)),
            QStringLiteral("Run \u201cchmod +x %1\u201d, or %2").arg(QDir::toNativeSeparators(path), fix)};
    return {subject,
            Severity::ok,
            QStringLiteral("\u201c%1\u201d runs %2.").arg(command, QDir::toNativeSeparators(path)),
            {}};
}

DiagnosticFinding remoteSocketFinding(const QString &path)
{
    const QString subject = QStringLiteral("Remote editing");
    const QString shown = QDir::toNativeSeparators(path);
    try {
        FileStore::verifyPrivateFolder(QFileInfo(path).absolutePath());
    } catch (const UnsafeFolderError &error) {
        return {subject, Severity::warning, error.description(), QString()};
    } catch (const TarvelError &) {
        // No folder yet: Tarvel makes it when it starts.
    }
    // Closed before anything is sent, which the application forgets without a word.
    const UnixSocket::Result probe = UnixSocket::connectTo(QFile::encodeName(path).toStdString());
    if (probe.descriptor >= 0) {
        ::close(probe.descriptor);
        return {subject,
                Severity::ok,
                QStringLiteral("Tarvel takes requests from other machines at %1; \u201ctarvel remote setup "
                               "HOST\u201d has ssh forward it to one.")
                    .arg(shown),
                {}};
    }
    // Tarvel makes the socket when it starts and removes it when it quits: none is no news.
    if (probe.error == ENOENT) {
        return {subject, Severity::ok,
                QStringLiteral("Tarvel takes requests from other machines at %1 while it runs.").arg(shown), {}};
    }
    return {subject, Severity::warning,
            QStringLiteral("Nothing listens at %1, so tarvel-edit on other machines cannot reach the "
                           "composer.")
                .arg(shown),
            QStringLiteral("Start Tarvel; when it runs, its error log says why remote editing is off.")};
}

DiagnosticFinding spellingFinding(const QString &choice, const QList<SpellDictionary> &installed,
                                  const QLocale &locale)
{
    const QString subject = QStringLiteral("Spelling");
    if (choice == SpellCheckService::offValue)
        return {
            subject, Severity::ok, QStringLiteral("Checking is turned off in Preferences (Editing)."), {}};
    // Debian names dictionaries after the locale: hunspell-en-us, hunspell-de-de.
    const QString language = SpellDictionaries::localeName(locale);
    const QString package = QStringLiteral("hunspell-") + language.toLower().replace(u'_', u'-');
    const QString install = QStringLiteral("Install a dictionary for your language, such as %1 "
                                           "(\u201csudo apt install %1\u201d), and open a new composer.")
                                .arg(package);
    if (installed.isEmpty())
        return {
            subject, Severity::warning,
            QStringLiteral("No Hunspell dictionary is installed, so the composer does not check spelling."),
            install};
    std::optional<SpellDictionary> used;
    for (const SpellDictionary &dictionary : installed) {
        if (dictionary.name == choice)
            used = dictionary;
    }
    QString note;
    if (!choice.isEmpty() && !used)
        note = QStringLiteral("The chosen dictionary %1 is no longer installed. ").arg(choice);
    if (!used)
        used = SpellDictionaries::forLocale(installed, locale);
    if (!used)
        return {subject, Severity::warning,
                note +
                    QStringLiteral("No installed dictionary is for the language %1, so the composer does not "
                                   "check spelling.")
                        .arg(language),
                QStringLiteral("Choose one in Preferences (Editing), or install %1.").arg(package)};
    return {subject, note.isEmpty() ? Severity::ok : Severity::warning,
            note + QStringLiteral("%1 (%2) checks the composer's spelling.")
                       .arg(SpellDictionaries::displayName(used->name),
                            QDir::toNativeSeparators(used->wordsPath)),
            note.isEmpty() ? QString() : QStringLiteral("Choose another one in Preferences (Editing).")};
}

DiagnosticFinding globalShortcutFinding()
{
    const QString subject = QStringLiteral("Global shortcut");
    const QString reason = SystemDiagnostics::globalShortcutsUnavailableReason();
    const KeyboardShortcuts shortcuts(UserDefaults::standard());
    const std::optional<Shortcut> shortcut = shortcuts.getShortcut(ShortcutNames::openScratchComposer());
    if (!reason.isEmpty()) {
        // Where the desktop binds keys itself, the user can bind starting Tarvel there.
        const QString manual = SystemDiagnostics::manualShortcutInstructions(shortcut);
        return {subject, Severity::warning, reason,
                !manual.isEmpty()
                    ? manual
                    : QStringLiteral("Log in to an X11 session, or use a desktop whose portal offers global "
                                     "shortcuts; the tray menu's Quick Tasks works everywhere.")};
    }
    if (!shortcut)
        return {subject, Severity::ok,
                QStringLiteral(
                    "None is set; one can be recorded in Preferences to open a quick-task composer from "
                    "any application."),
                QString()};
    return {subject, Severity::ok,
            shortcuts.displayText(*shortcut) +
                QStringLiteral(" opens a quick-task composer from any application."),
            QString()};
}

QList<DiagnosticFinding> examine()
{
    QList<DiagnosticFinding> findings = SystemDiagnostics::desktopFindings();
    const QString thisHelper =
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("tarvel-edit"));
    const QString shim = QDir::home().filePath(QStringLiteral(".local/bin/tarvel-edit"));
    findings.append(editorVariableFinding(qEnvironmentVariable("VISUAL"), qEnvironmentVariable("EDITOR"),
                                          thisHelper, shim));
    findings.append(editorSetupFinding(QCoreApplication::applicationDirPath()));
    findings.append(dataFolderFinding(FileStore::baseDirectory()));
    findings.append(backendFindings());
    findings.append(dictationFindings());
    DiagnosticFinding spelling =
        spellingFinding(UserDefaults::standard().string(SpellCheckService::dictionaryKey).value_or(QString()),
                        SpellDictionaries::installed(), QLocale::system());
    // A dictionary that is there but does not load turns checking off just the same.
    if (const auto chosen = SpellCheckService::chosenDictionary(UserDefaults::standard())) {
        try {
            HunspellSpellChecker check(*chosen);
        } catch (const TarvelError &error) {
            spelling.severity = Severity::warning;
            spelling.detail = error.description();
            spelling.remedy = QStringLiteral("Choose another dictionary in Preferences (Editing).");
        }
    }
    findings.append(spelling);
    findings.append(globalShortcutFinding());
    findings.append(remoteSocketFinding(RemoteRequestServer::defaultSocketPath()));
    return findings;
}

bool canEditPrompts(const QList<DiagnosticFinding> &findings)
{
    return std::none_of(findings.begin(), findings.end(), [](const DiagnosticFinding &finding) {
        return finding.severity == Severity::problem;
    });
}

QString report(const QList<DiagnosticFinding> &findings)
{
    QString text;
    for (const DiagnosticFinding &finding : findings) {
        text += QStringLiteral("%1 %2: %3")
                    .arg(severityName(finding.severity).leftJustified(8), finding.subject, finding.detail);
        if (!finding.remedy.isEmpty())
            text += QStringLiteral(" To fix: ") + finding.remedy;
        text += u'\n';
    }
    text += canEditPrompts(findings)
                ? QStringLiteral("Tarvel can edit prompts for the assistants.\n")
                : QStringLiteral("Tarvel cannot edit prompts for the assistants until the problems above "
                                 "are fixed.\n");
    return text;
}

QByteArray jsonReport(const QList<DiagnosticFinding> &findings)
{
    QJsonArray checks;
    for (const DiagnosticFinding &finding : findings) {
        checks.append(QJsonObject{{QStringLiteral("subject"), finding.subject},
                                  {QStringLiteral("status"), severityName(finding.severity)},
                                  {QStringLiteral("detail"), finding.detail},
                                  {QStringLiteral("remedy"), finding.remedy}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("canEditPrompts"), canEditPrompts(findings)},
                                     {QStringLiteral("checks"), checks}})
        .toJson(QJsonDocument::Indented);
}

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const bool json = arguments == QStringList{QStringLiteral("--json")};
    if (!arguments.isEmpty() && !json) {
        err << "usage: tarvel doctor [--json]\n";
        return 2;
    }
    const QList<DiagnosticFinding> findings = examine();
    if (json)
        out << QString::fromUtf8(jsonReport(findings));
    else
        out << report(findings);
    return canEditPrompts(findings) ? 0 : 1;
}

} // namespace Doctor
