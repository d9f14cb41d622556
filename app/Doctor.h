#pragma once

#include "editing/SpellDictionaries.h"
#include "platform/SystemDiagnostics.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTextStream>

// `tarvel doctor`: everything Tarvel depends on, one finding each, with what to do about
// a failure. Looks only; changes nothing and never starts the application.
namespace Doctor {

// The desktop's findings, then Tarvel's own: the editor hook as this shell sees it, the data
// folder, the backends and their models.
QList<DiagnosticFinding> examine();

// Prompt editing works when nothing is a problem.
bool canEditPrompts(const QList<DiagnosticFinding> &findings);
// One plain line per finding and a verdict.
QString report(const QList<DiagnosticFinding> &findings);
QByteArray jsonReport(const QList<DiagnosticFinding> &findings);

// The checks of Tarvel's own parts, on their own for tests.
DiagnosticFinding editorVariableFinding(const QString &visual, const QString &editor,
                                        const QString &thisHelper, const QString &shim);
DiagnosticFinding dataFolderFinding(const QString &path);
// The recogniser command of the settings: none (the built-in recogniser), or its program and
// whether it can run.
DiagnosticFinding recognizerCommandFinding(const QString &command);
// The socket that takes requests from other machines: whether a running Tarvel listens there.
DiagnosticFinding remoteSocketFinding(const QString &path);
// The composer's spelling: the stored choice (empty follows the locale, "off", or a dictionary's
// name) against the installed dictionaries, and how to turn checking on when it is off.
DiagnosticFinding spellingFinding(const QString &choice, const QList<SpellDictionary> &installed,
                                  const QLocale &locale);

// `tarvel doctor [--json]`: exit status 0 when prompt editing works, 1 when not.
int run(const QStringList &arguments, QTextStream &out, QTextStream &err);

} // namespace Doctor
