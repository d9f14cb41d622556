#include "quicktasks/QuickTaskCompletionNotification.h"

#include "backends/BackendProfiles.h"
#include "core/JSONCoding.h"

#include <QRegularExpression>
#include <QTextBoundaryFinder>

namespace QuickTaskCompletionNotification {

QString singleLine(const QString &text)
{
    static const QRegularExpression lineBreaks(QStringLiteral("\\R"));
    return QString(text).replace(lineBreaks, QStringLiteral(" ")).trimmed();
}

QString truncated(const QString &text, int limit)
{
    // Counted in what the user sees as characters, so an emoji or an accented letter made
    // of two code points is never cut in half.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    qsizetype cut = -1;
    while (finder.toNextBoundary() != -1) {
        ++count;
        if (count == limit)
            cut = finder.position();
        else if (count > limit)
            return text.left(cut) + QStringLiteral("...");
    }
    return text;
}

QString title(const QuickTaskSession &session)
{
    return QStringLiteral("%1 task %2")
        .arg(BackendProfiles::of(session.backend).displayTitle(),
             QuickTaskSession::statusTitle(session.status));
}

QString subtitle(const QuickTaskSession &session)
{
    return truncated(singleLine(session.prompt), subtitleLimit);
}

QString body(const QuickTaskSession &session)
{
    QString text = truncated(singleLine(session.prompt), bodyPromptLimit);
    if (session.hasFinalResponse())
        text += u'\n' + truncated(singleLine(*session.finalResponse), bodyResponseLimit);
    return text;
}

UserNotificationRequest request(const QuickTaskSession &session)
{
    const QString identifier = JSONCoding::encodeUuid(session.id);
    UserNotificationRequest request;
    request.identifier = identifier;
    request.title = title(session);
    request.subtitle = subtitle(session);
    request.body = body(session);
    request.categoryIdentifier = categoryIdentifier;
    request.threadIdentifier = threadIdentifier;
    request.userInfo.insert(sessionIdentifierKey, identifier);
    request.playsDefaultSound = true;
    return request;
}

QList<UserNotificationAction> categoryActions()
{
    return {UserNotificationAction{copyFinalResponseActionIdentifier, copyFinalResponseActionTitle}};
}

} // namespace QuickTaskCompletionNotification
