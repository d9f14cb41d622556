#pragma once

#include "quicktasks/OutputLineBuffer.h"
#include "quicktasks/QuickTaskOutputHandler.h"
#include "settings/QuickTaskCLIBackend.h"
#include "voice/VoicePromptDraftError.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

// What a rewrite run printed, turned into its answer. Lines are trimmed of white space and
// blank ones dropped; codex's last agent message is the answer, claude's and opencode's
// lines (opencode's cleaned of terminal codes) make it up together. Of standard error the
// last six lines are kept, for the failure text.
class PromptRewriteOutput final {
public:
    static constexpr qsizetype recentStderrLineLimit = 6;
    // How many of the kept stderr lines a failure shows.
    static constexpr qsizetype failureStderrLineCount = 3;

    explicit PromptRewriteOutput(QuickTaskCLIBackend backend);

    void consume(OutputStream stream, QByteArrayView bytes);
    // At exit: the unfinished last line of each stream.
    void finish();

    const std::optional<QString> &finalResponse() const noexcept { return m_finalResponse; }
    const QStringList &finalResponseLines() const noexcept { return m_finalResponseLines; }
    const QStringList &recentStderrLines() const noexcept { return m_recentStderrLines; }

    // The draft for a run that ended with exitStatus (and was not cancelled), or the
    // promptRewriteFailed error that says why there is none.
    std::variant<QString, VoicePromptDraftError> outcome(int exitStatus, const QString &transcript) const;

private:
    void processLine(OutputStream stream, QByteArrayView rawLine);

    QuickTaskCLIBackend m_backend;
    OutputLineBuffer m_standardOutputBuffer;
    OutputLineBuffer m_standardErrorBuffer;
    std::optional<QString> m_finalResponse;
    QStringList m_finalResponseLines;
    QStringList m_recentStderrLines;
};
