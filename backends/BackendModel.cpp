#include "backends/BackendModel.h"

#include <algorithm>

QString BackendModel::resolvedDefaultReasoningEffort() const
{
    if (supportedReasoningLevels.contains(defaultReasoningLevel))
        return defaultReasoningLevel;
    if (!supportedReasoningLevels.isEmpty())
        return supportedReasoningLevels.constFirst();
    return QStringLiteral("medium");
}

QString BackendModel::highestSupportedReasoningEffort() const
{
    QStringList descending = reasoningEffortVocabulary();
    std::reverse(descending.begin(), descending.end());
    return preferredReasoningEffort(descending);
}

QString BackendModel::lowestSupportedReasoningEffort() const
{
    return preferredReasoningEffort(reasoningEffortVocabulary());
}

QString BackendModel::preferredReasoningEffort(const QStringList &order) const
{
    for (const QString &effort : order) {
        if (supportedReasoningLevels.contains(effort))
            return effort;
    }
    return resolvedDefaultReasoningEffort();
}

const QStringList &BackendModel::reasoningEffortVocabulary()
{
    static const QStringList efforts{QStringLiteral("minimal"), QStringLiteral("low"),
                                     QStringLiteral("medium"),  QStringLiteral("high"),
                                     QStringLiteral("xhigh"),   QStringLiteral("max")};
    return efforts;
}
