#pragma once

#include "editor_integration/EditorIntegrationStatus.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

class FileOpener;

// Points the editor variable of the user's shell at a small shim in ~/.local/bin, which
// finds tarvel-edit and runs it. status() reads what the start-up file says; install()
// writes the shim and a marked block into that file. The home folder comes from HOME and
// the shell from SHELL.
//
// Start-up files by shell: zsh .zshrc, bash .bashrc, fish a file of its own in
// conf.d (fish cannot read the block of the others), any other shell .profile.
class EditorIntegrationManager final {
public:
    // How a start-up file assigns variables.
    enum class ShellSyntax { posix, fish };

    // applicationDirectory: the folder of the running application, where the shim looks
    // for tarvel-edit (on the Mac, Contents/MacOS inside the bundle). fileOpener, when
    // given, opens the start-up file's folder when no file manager can show the file.
    explicit EditorIntegrationManager(QString applicationDirectory, FileOpener *fileOpener = nullptr);

    std::optional<EditorIntegrationInstallLocation> installLocation() const;
    // Where the start-up file and the shim are for that home folder and shell (XDG_CONFIG_HOME
    // matters to fish only).
    static EditorIntegrationInstallLocation locationFor(const QString &home, const QString &shellName,
                                                        const QString &xdgConfigHome);
    // Never fails: an unreadable start-up file counts as empty.
    std::optional<EditorIntegrationStatus> status() const;
    // Writes the shim and the block; throws EditorIntegrationError, also when the start-up file
    // exists but cannot be read (it is never replaced by the block alone). Nothing written
    // before a failure is undone.
    EditorIntegrationInstallLocation install() const;
    void revealConfigLocation(const EditorIntegrationInstallLocation &location) const;

    // The steps, public for their tests.
    static QString preferredShellName();
    static ShellSyntax syntaxFor(const QString &shellName);
    static QMap<QString, QString> editorAssignments(const QString &text, ShellSyntax syntax);
    // The variable and the command of one trimmed line, if it assigns VISUAL or EDITOR.
    static std::optional<std::pair<QString, QString>> parseEditorAssignment(const QString &line,
                                                                            ShellSyntax syntax);
    static bool usesTarvel(const QString &command);
    static QString markedBlock(ShellSyntax syntax);
    // The start-up file with the marked block in it: an earlier block is replaced where it
    // stands (unless a later line sets VISUAL again, which would win), else the block is added
    // at the end. Every byte outside the block is kept as it was, whatever its encoding.
    static QByteArray mergedShellConfig(const QByteArray &existing, ShellSyntax syntax);
    QString helperScriptContents() const;
    // The POSIX shim with helperPath as the tarvel-edit it runs first, for a machine that has
    // the helper without the application (another machine reached over ssh).
    static QString shimScript(const QString &helperPath);

private:
    QString m_applicationDirectory;
    FileOpener *m_fileOpener = nullptr;
};
