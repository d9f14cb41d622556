#pragma once

#include "backends/BackendOutputParser.h"
#include "backends/QuickTaskCLIBackend.h"
#include "quicktasks/OutputLineBuffer.h"
#include "quicktasks/QuickTaskOutputHandler.h"
#include "voice/VoicePromptDraftError.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <variant>

// What a rewrite run printed, turned into its answer. Lines are trimmed of white space and
// blank ones dropped; standard output goes to the backend's output parser, whose answer is
// the draft. Of standard error the last six lines are kept, for the failure text.
class PromptRewriteOutput final {
public:
    static constexpr qsizetype recentStderrLineLimit = 6;
    // How many of the kept stderr lines a failure shows.
    static constexpr qsizetype failureStderrLineCount = 3;

    explicit PromptRewriteOutput(QuickTaskCLIBackend backend);

    void consume(OutputStream stream, QByteArrayView bytes);
    // At exit: the unfinished last line of each stream.
    void finish();

    std::optional<QString> finalResponse() const { return m_parser->finalResponse(); }
    const QStringList &recentStderrLines() const noexcept { return m_recentStderrLines; }

    // The draft for a run that ended with exitStatus (and was not cancelled), or the
    // promptRewriteFailed error that says why there is none.
    std::variant<QString, VoicePromptDraftError> outcome(int exitStatus, const QString &transcript) const;

private:
    void processLine(OutputStream stream, QByteArrayView rawLine);

    QuickTaskCLIBackend m_backend;
    std::unique_ptr<BackendOutputParser> m_parser;
    // What the parser would show in a transcript; a rewrite has none.
    QByteArray m_discardedTranscript;
    OutputLineBuffer m_standardOutputBuffer;
    OutputLineBuffer m_standardErrorBuffer;
    QStringList m_recentStderrLines;
};
