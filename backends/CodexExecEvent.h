#pragma once

#include <QByteArrayView>
#include <QJsonObject>
#include <QString>

#include <optional>

// The item of an "item.*" event of `codex exec --json`; only what Tarvel reads.
struct CodexExecItem {
    QString type;
    std::optional<QString> text;

    // Throws DecodingError.
    static CodexExecItem fromJson(const QJsonObject &object);
};

// One line of `codex exec --json` output. Unknown keys are ignored.
struct CodexExecEvent {
    QString type;
    std::optional<QString> threadID;
    std::optional<CodexExecItem> item;

    // Throws DecodingError.
    static CodexExecEvent fromJson(const QJsonObject &object);
    // nullopt for a line that is not an event.
    static std::optional<CodexExecEvent> decode(QByteArrayView line);
    // True when a quick look shows that the line is an event of a type Tarvel ignores, so
    // that it need not be decoded. Most of codex's output (command output, reasoning,
    // usage) is such events; anything unusual gets false and a full decode.
    static bool isSurelyIgnored(QByteArrayView line);

    // The thread id of a "thread.started" event that carries one.
    std::optional<QString> startedThreadID() const;
    // The text of a completed, non-empty agent message.
    std::optional<QString> agentMessageText() const;
};
