#pragma once

#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QtTest>

// Writes the backends' own configuration files into the temporary HOME of a TestEnvironment,
// where the catalog looks for them.
namespace CatalogFiles {

inline QByteArray sample(const QString &relativePath)
{
    QFile file(QDir(qEnvironmentVariable("TARVEL_TEST_DATA")).filePath(relativePath));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("Missing test data %s", qPrintable(file.fileName()));
    return file.readAll();
}

inline void write(const TestEnvironment &env, const QString &relativePath, const QByteArray &bytes)
{
    const QString path = env.path(relativePath);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

inline void writeCodexCache(const TestEnvironment &env, const QByteArray &bytes)
{
    write(env, QStringLiteral(".codex/models_cache.json"), bytes);
}

inline void writeOpenCodeConfig(const TestEnvironment &env, const QByteArray &bytes)
{
    write(env, QStringLiteral(".config/opencode/opencode.json"), bytes);
}

// One entry of codex's cache with the keys codex writes; visibility left out when empty.
inline QJsonObject codexEntry(const QString &slug, const QStringList &efforts, const QString &defaultEffort,
                              const QString &description = QStringLiteral("A model."),
                              const QString &visibility = QStringLiteral("list"))
{
    QJsonArray levels;
    for (const QString &effort : efforts)
        levels.append(
            QJsonObject{{QStringLiteral("effort"), effort}, {QStringLiteral("description"), effort}});
    QJsonObject entry{{QStringLiteral("slug"), slug},
                      {QStringLiteral("display_name"), slug},
                      {QStringLiteral("description"), description},
                      {QStringLiteral("default_reasoning_level"), defaultEffort},
                      {QStringLiteral("supported_reasoning_levels"), levels},
                      {QStringLiteral("shell_type"), QStringLiteral("shell_command")},
                      {QStringLiteral("priority"), 0}};
    if (!visibility.isEmpty())
        entry.insert(QStringLiteral("visibility"), visibility);
    return entry;
}

inline QByteArray codexCache(const QJsonArray &entries)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("fetched_at"), QStringLiteral("2026-11-20T09:14:52Z")},
                                     {QStringLiteral("client_version"), QStringLiteral("0.63.0")},
                                     {QStringLiteral("models"), entries}})
        .toJson();
}

} // namespace CatalogFiles
