#include "quicktasks/CodexExecEvent.h"

#include "core/JSONCoding.h"

namespace {
const QString kType = QStringLiteral("type");
const QString kText = QStringLiteral("text");
const QString kThreadID = QStringLiteral("thread_id");
const QString kItem = QStringLiteral("item");
} // namespace

CodexExecItem CodexExecItem::fromJson(const QJsonObject &object)
{
    return CodexExecItem{JSONCoding::requiredString(object, kType),
                         JSONCoding::optionalString(object, kText)};
}

CodexExecEvent CodexExecEvent::fromJson(const QJsonObject &object)
{
    CodexExecEvent event{JSONCoding::requiredString(object, kType),
                         JSONCoding::optionalString(object, kThreadID), std::nullopt};
    const QJsonValue item = object.value(kItem);
    if (item.isObject())
        event.item = CodexExecItem::fromJson(item.toObject());
    else if (!item.isUndefined() && !item.isNull())
        throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not an object.").arg(kItem));
    return event;
}

std::optional<CodexExecEvent> CodexExecEvent::decode(QByteArrayView line)
{
    // Lines that are not events (a stray log line, a future format) are expected now and
    // then; they only matter to the raw log.
    try {
        return fromJson(JSONCoding::decodeObject(QByteArray::fromRawData(line.data(), line.size())));
    } catch (const DecodingError &) {
        return std::nullopt;
    }
}

std::optional<QString> CodexExecEvent::startedThreadID() const
{
    if (type == u"thread.started" && threadID && !threadID->isEmpty())
        return threadID;
    return std::nullopt;
}

std::optional<QString> CodexExecEvent::agentMessageText() const
{
    if (type == u"item.completed" && item && item->type == u"agent_message" && item->text &&
        !item->text->isEmpty())
        return item->text;
    return std::nullopt;
}
