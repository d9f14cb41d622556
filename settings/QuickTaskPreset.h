#pragma once

#include <QString>

// One quick-task preset: a model and a reasoning effort for one backend. An empty
// model means the backend's own default.
struct QuickTaskPreset {
    QString model;
    QString reasoningEffort;

    friend bool operator==(const QuickTaskPreset &, const QuickTaskPreset &) = default;
};
