#include "backends/CodexExecEvent.h"

#include "core/JSONCoding.h"

namespace {

// Walks one JSON object just far enough to read the string values of two keys, skipping
// everything else. It does not validate; it only needs to be right about valid JSON and to
// give up on anything it does not expect.
class ObjectScanner final {
public:
    explicit ObjectScanner(QByteArrayView text)
        : m_position(text.data())
        , m_end(text.data() + text.size())
    {
    }

    struct Result {
        QByteArrayView type;
        const char *item = nullptr; // where the "item" object starts
    };

    // nullopt when the text is not what the scanner expects.
    std::optional<Result> scanObject(bool wholeText)
    {
        Result result;
        bool sawType = false;
        skipWhiteSpace();
        if (!consume('{'))
            return std::nullopt;
        skipWhiteSpace();
        if (!consume('}')) {
            while (true) {
                skipWhiteSpace();
                QByteArrayView key;
                if (!readPlainString(key))
                    return std::nullopt;
                skipWhiteSpace();
                if (!consume(':'))
                    return std::nullopt;
                skipWhiteSpace();
                if (key == "type") {
                    if (sawType || !readPlainString(result.type))
                        return std::nullopt;
                    sawType = true;
                } else if (key == "item") {
                    if (result.item || m_position == m_end || *m_position != '{')
                        return std::nullopt;
                    result.item = m_position;
                    if (!skipValue(0))
                        return std::nullopt;
                } else if (!skipValue(0)) {
                    return std::nullopt;
                }
                skipWhiteSpace();
                if (consume('}'))
                    break;
                if (!consume(','))
                    return std::nullopt;
            }
        }
        skipWhiteSpace();
        if (!sawType || (wholeText && m_position != m_end))
            return std::nullopt;
        return result;
    }

    void moveTo(const char *position) { m_position = position; }

private:
    static constexpr int kMaximumDepth = 64;

    bool consume(char c)
    {
        if (m_position == m_end || *m_position != c)
            return false;
        ++m_position;
        return true;
    }
    void skipWhiteSpace()
    {
        while (m_position != m_end &&
               (*m_position == ' ' || *m_position == '\t' || *m_position == '\n' || *m_position == '\r'))
            ++m_position;
    }
    // A string without escapes (a key or type that needs unescaping is left to the decoder).
    bool readPlainString(QByteArrayView &value)
    {
        if (!consume('"'))
            return false;
        const char *start = m_position;
        while (m_position != m_end && *m_position != '"') {
            if (*m_position == '\\')
                return false;
            ++m_position;
        }
        if (m_position == m_end)
            return false;
        value = QByteArrayView(start, m_position - start);
        ++m_position;
        return true;
    }
    bool skipString()
    {
        if (!consume('"'))
            return false;
        while (m_position != m_end) {
            const char c = *m_position++;
            if (c == '"')
                return true;
            if (c == '\\') {
                if (m_position == m_end)
                    return false;
                ++m_position;
            }
        }
        return false;
    }
    bool skipValue(int depth)
    {
        if (m_position == m_end || depth > kMaximumDepth)
            return false;
        const char first = *m_position;
        if (first == '"')
            return skipString();
        if (first == '{' || first == '[') {
            const char close = first == '{' ? '}' : ']';
            ++m_position;
            skipWhiteSpace();
            if (consume(close))
                return true;
            while (true) {
                skipWhiteSpace();
                if (first == '{') {
                    if (!skipString())
                        return false;
                    skipWhiteSpace();
                    if (!consume(':'))
                        return false;
                    skipWhiteSpace();
                }
                if (!skipValue(depth + 1))
                    return false;
                skipWhiteSpace();
                if (consume(close))
                    return true;
                if (!consume(','))
                    return false;
            }
        }
        // A number, true, false or null.
        const char *start = m_position;
        while (m_position != m_end && *m_position != ',' && *m_position != '}' && *m_position != ']' &&
               *m_position != ' ' && *m_position != '\t' && *m_position != '\n' && *m_position != '\r')
            ++m_position;
        return m_position != start;
    }

    const char *m_position;
    const char *m_end;
};

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

bool CodexExecEvent::isSurelyIgnored(QByteArrayView line)
{
    ObjectScanner scanner(line);
    const std::optional<ObjectScanner::Result> event = scanner.scanObject(true);
    if (!event)
        return false;
    if (event->type == "thread.started")
        return false;
    if (event->type != "item.completed")
        return true;
    if (!event->item)
        return false;
    scanner.moveTo(event->item);
    const std::optional<ObjectScanner::Result> item = scanner.scanObject(false);
    return item && item->type != "agent_message";
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
