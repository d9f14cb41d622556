#pragma once

#include <QString>

// A model and a reasoning effort for one backend; an empty model means the backend's own
// default. Quick-task presets and the voice draft are made of one.
struct ModelChoice {
    QString model;
    QString reasoningEffort;

    friend bool operator==(const ModelChoice &, const ModelChoice &) = default;
};

// What a newly made choice is for.
enum class ModelRole { best, fast, voiceDraft };
