#pragma once

#include <QString>
#include <QStringList>

// One model a backend offers, with the reasoning efforts it takes.
struct BackendModel {
    // Passed to the backend as the model name; empty means the backend's own default (opencode).
    QString identifier;
    QString displayName;
    QString description;
    QString defaultReasoningLevel;
    QStringList supportedReasoningLevels;

    bool supports(const QString &effort) const { return supportedReasoningLevels.contains(effort); }
    // The default level when the model takes it, else its first level, else "medium".
    QString resolvedDefaultReasoningEffort() const;
    QString highestSupportedReasoningEffort() const;
    QString lowestSupportedReasoningEffort() const;
    // The first entry of order that the model supports; resolvedDefaultReasoningEffort() when none.
    QString preferredReasoningEffort(const QStringList &order) const;

    // "minimal", "low", "medium", "high", "xhigh", "max": weakest first.
    static const QStringList &reasoningEffortVocabulary();

    friend bool operator==(const BackendModel &, const BackendModel &) = default;
};
