// The models the backends offer: codex's cache and opencode's config read from a real HOME, the
// opencode identifiers (trimmed, "provider//model", deduplicated) and order, and the menu rows.
#include "CatalogFiles.h"
#include "backends/BackendProfiles.h"
#include "backends/OpenCodeBackendProfile.h"
#include "settings/QuickTaskModelCatalog.h"
#include "support/TestEnvironment.h"

#include <QtTest>

#include <sys/stat.h>

using QuickTaskModelCatalog::Model;
namespace Catalog = QuickTaskModelCatalog;

namespace {

QStringList identifiers(const QList<Model> &models)
{
    QStringList list;
    for (const Model &model : models)
        list.append(model.identifier);
    return list;
}

// What the backend's profile reads from its files on every call.
QList<Model> modelsOf(QuickTaskCLIBackend backend)
{
    return BackendProfiles::of(backend).availableModels();
}

Model named(const QString &identifier)
{
    return Model{identifier, identifier, QString(), QString(), {}};
}

} // namespace

class ModelCatalogTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void codexCacheAsCodexWritesIt()
    {
        TestEnvironment env;
        CatalogFiles::writeCodexCache(env, CatalogFiles::sample(QStringLiteral("codex/models_cache.json")));

        const QList<Model> models = modelsOf(QuickTaskCLIBackend::codex);
        // File order, hidden and internal models left out.
        QCOMPARE(identifiers(models),
                 (QStringList{QStringLiteral("gpt-5.2-codex"), QStringLiteral("gpt-5.1-codex-max"),
                              QStringLiteral("gpt-5.1-codex-mini"), QStringLiteral("gpt-5.2")}));
        const Model &mini = models.at(2);
        QCOMPARE(mini.displayName, QStringLiteral("gpt-5.1-codex-mini"));
        QCOMPARE(mini.description, QStringLiteral("Optimized for codex. Cheaper, faster, but less capable."));
        QCOMPARE(mini.defaultReasoningLevel, QStringLiteral("medium"));
        QCOMPARE(mini.supportedReasoningLevels,
                 (QStringList{QStringLiteral("medium"), QStringLiteral("high")}));
    }

    void codexVisibilityRule()
    {
        TestEnvironment env;
        const auto entry = [](const char *slug, const QString &visibility) {
            return CatalogFiles::codexEntry(QString::fromUtf8(slug), {QStringLiteral("low")},
                                            QStringLiteral("low"), QStringLiteral("d"), visibility);
        };
        // Listed unless it says otherwise; "List" is not "list".
        CatalogFiles::writeCodexCache(
            env, CatalogFiles::codexCache(QJsonArray{
                     entry("hidden", QStringLiteral("hide")), entry("no-key", QString()),
                     entry("capital", QStringLiteral("List")), entry("listed", QStringLiteral("list"))}));
        QCOMPARE(identifiers(modelsOf(QuickTaskCLIBackend::codex)),
                 (QStringList{QStringLiteral("no-key"), QStringLiteral("listed")}));
    }

    void unreadableCodexCacheGivesNoModels_data()
    {
        QTest::addColumn<QByteArray>("contents");
        const QJsonObject good =
            CatalogFiles::codexEntry(QStringLiteral("gpt"), {QStringLiteral("low")}, QStringLiteral("low"));
        QJsonObject missingDescription = good;
        missingDescription.remove(QStringLiteral("description"));
        QJsonObject levelWithoutEffort = good;
        levelWithoutEffort.insert(
            QStringLiteral("supported_reasoning_levels"),
            QJsonArray{QJsonObject{{QStringLiteral("description"), QStringLiteral("x")}}});
        QJsonObject numericSlug = good;
        numericSlug.insert(QStringLiteral("slug"), 5);

        QTest::newRow("not JSON") << QByteArray("{\"models\": [");
        QTest::newRow("no models key") << QByteArray("{\"fetched_at\": \"2026-01-01T00:00:00Z\"}");
        QTest::newRow("an array") << QByteArray("[]");
        // One bad entry spoils the whole file, even next to good ones.
        QTest::newRow("entry without description")
            << CatalogFiles::codexCache(QJsonArray{good, missingDescription});
        QTest::newRow("level without effort")
            << CatalogFiles::codexCache(QJsonArray{good, levelWithoutEffort});
        QTest::newRow("slug of the wrong type") << CatalogFiles::codexCache(QJsonArray{numericSlug, good});
    }

    void unreadableCodexCacheGivesNoModels()
    {
        QFETCH(QByteArray, contents);
        TestEnvironment env;
        CatalogFiles::writeCodexCache(env, contents);
        QVERIFY(modelsOf(QuickTaskCLIBackend::codex).isEmpty());
    }

    // Missing, oversized and special files (a FIFO would hold a read for ever) are no models and
    // no error.
    void missingLargeAndSpecialFilesReadAsAbsent()
    {
        TestEnvironment env;
        const auto onlyBuiltIn = [] {
            return modelsOf(QuickTaskCLIBackend::codex).isEmpty() &&
                   modelsOf(QuickTaskCLIBackend::opencode) ==
                       QList<Model>{OpenCodeBackendProfile::defaultModel()};
        };
        QVERIFY(onlyBuiltIn());
        QCOMPARE(identifiers(modelsOf(QuickTaskCLIBackend::claude)),
                 (QStringList{QStringLiteral("sonnet"), QStringLiteral("opus")}));

        const QByteArray padding(BackendProfile::maximumToolFileSize, ' '); // still valid JSON
        CatalogFiles::writeCodexCache(env, CatalogFiles::sample(QStringLiteral("codex/models_cache.json")) +
                                               padding);
        CatalogFiles::writeOpenCodeConfig(
            env, CatalogFiles::sample(QStringLiteral("opencode/opencode.json")) + padding);
        QVERIFY(onlyBuiltIn());

        for (const QString &file :
             {QStringLiteral(".codex/models_cache.json"), QStringLiteral(".config/opencode/opencode.json")}) {
            QVERIFY(QFile::remove(env.path(file)));
            QCOMPARE(::mkfifo(QFile::encodeName(env.path(file)).constData(), 0600), 0);
        }
        QVERIFY(onlyBuiltIn());
    }

    void openCodeConfigAsOpenCodeWritesIt()
    {
        TestEnvironment env;
        CatalogFiles::writeOpenCodeConfig(env,
                                          CatalogFiles::sample(QStringLiteral("opencode/opencode.json")));

        const QList<Model> models = modelsOf(QuickTaskCLIBackend::opencode);
        // The default entry, then the configured default model (matched without regard to case), then
        // the rest in case-insensitive order: "openrouter//Deepseek" after "openrouter//anthropic".
        QCOMPARE(identifiers(models), (QStringList{QString(), QStringLiteral("anthropic//claude-sonnet-4-5"),
                                                   QStringLiteral("anthropic//claude-haiku-4-5"),
                                                   QStringLiteral("ollama//llama3.1:8b"),
                                                   QStringLiteral("ollama//qwen2.5-coder:14b"),
                                                   QStringLiteral("openrouter//anthropic/claude-sonnet-4-5"),
                                                   QStringLiteral("openrouter//Deepseek/deepseek-chat")}));
        QCOMPARE(models.at(0), OpenCodeBackendProfile::defaultModel());

        const Model &haiku = models.at(2);
        QCOMPARE(haiku.displayName, QStringLiteral("Claude Haiku 4.5"));
        QCOMPARE(haiku.description, QStringLiteral("Anthropic Claude Haiku 4.5"));
        QCOMPARE(haiku.defaultReasoningLevel, QStringLiteral("medium"));
        QCOMPARE(haiku.supportedReasoningLevels, OpenCodeBackendProfile::reasoningVariants());
        // Without a model name the identifier is shown and the provider alone describes it.
        QCOMPARE(models.at(3).displayName, QStringLiteral("ollama//llama3.1:8b"));
        QCOMPARE(models.at(3).description, QStringLiteral("Ollama (local)"));
    }

    // The tools move their folders with CODEX_HOME and XDG_CONFIG_HOME; the catalog follows.
    void toolFoldersFollowTheToolsEnvironment()
    {
        TestEnvironment env;
        env.set("CODEX_HOME", env.path(QStringLiteral("elsewhere/codex")));
        env.set("XDG_CONFIG_HOME", env.path(QStringLiteral("elsewhere/config")));
        CatalogFiles::write(env, QStringLiteral("elsewhere/codex/models_cache.json"),
                            CatalogFiles::codexCache(QJsonArray{CatalogFiles::codexEntry(
                                QStringLiteral("moved"), {QStringLiteral("low")}, QStringLiteral("low"))}));
        CatalogFiles::write(env, QStringLiteral("elsewhere/config/opencode/opencode.json"),
                            CatalogFiles::sample(QStringLiteral("opencode/opencode.json")));
        QCOMPARE(identifiers(modelsOf(QuickTaskCLIBackend::codex)), QStringList{QStringLiteral("moved")});
        QCOMPARE(modelsOf(QuickTaskCLIBackend::opencode).size(), 7);
    }

    void openCodeWalkTrimsAndDeduplicates()
    {
        TestEnvironment env;
        CatalogFiles::writeOpenCodeConfig(env, R"({
            "provider": {
                "alpha ": {"models": {"gpt": {"name": "from a padded provider key"}}},
                "  ": {"name": "Blank", "models": {"m": {"name": "bare"}, " solo ": {}}},
                "alpha": {"models": {" gpt ": {"name": " "}, "/gpt": {"name": "duplicate"}, "": {}}},
                "beta": {"name": " Beta ", "models": {}}
            }
        })");
        const QList<Model> models = modelsOf(QuickTaskCLIBackend::opencode);
        // "alpha" + "" gives "alpha"; "alpha" + "/gpt" and "alpha " + "gpt" canonicalise to the same
        // "alpha//gpt" as "alpha" + " gpt ", and the first in key order wins; the blank provider
        // contributes bare model keys.
        QCOMPARE(identifiers(models),
                 (QStringList{QString(), QStringLiteral("alpha"), QStringLiteral("alpha//gpt"),
                              QStringLiteral("m"), QStringLiteral("solo")}));
        QCOMPARE(models.at(2).displayName, QStringLiteral("alpha//gpt")); // a blank name does not count
        QCOMPARE(models.at(3).displayName, QStringLiteral("bare"));
        QCOMPARE(models.at(3).description, QStringLiteral("Blank bare"));
    }

    void openCodeSortIsStableAndDefaultFirst()
    {
        TestEnvironment env;
        // "A" and "a" compare equal without case, so they keep walk order ("A" sorts first by key).
        CatalogFiles::writeOpenCodeConfig(env, R"({
            "model": " p / B ",
            "provider": {"p": {"models": {"c": {}, "b": {}, "a": {}, "A": {}, "B": {}}}}
        })");
        QCOMPARE(identifiers(modelsOf(QuickTaskCLIBackend::opencode)),
                 (QStringList{QString(), QStringLiteral("p//B"), QStringLiteral("p//b"),
                              QStringLiteral("p//A"), QStringLiteral("p//a"), QStringLiteral("p//c")}));
    }

    void unreadableOpenCodeConfigKeepsTheDefault_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("comments (JSONC)") << QByteArray("{\n // mine\n \"provider\": {}\n}");
        QTest::newRow("no provider") << QByteArray(R"({"model": "anthropic/claude"})");
        QTest::newRow("provider without models") << QByteArray(
            R"({"provider": {"a": {"models": {"x": {}}}, "anthropic": {"options": {"timeout": 1}}}})");
        QTest::newRow("model name of the wrong type")
            << QByteArray(R"({"provider": {"a": {"models": {"x": {"name": 1}}}}})");
        QTest::newRow("empty file") << QByteArray();
    }

    void unreadableOpenCodeConfigKeepsTheDefault()
    {
        QFETCH(QByteArray, contents);
        TestEnvironment env;
        CatalogFiles::writeOpenCodeConfig(env, contents);
        QCOMPARE(modelsOf(QuickTaskCLIBackend::opencode),
                 QList<Model>{OpenCodeBackendProfile::defaultModel()});
    }

    void menuRows()
    {
        const QList<Model> openCode{OpenCodeBackendProfile::defaultModel(),
                                    named(QStringLiteral("OpenAI//GPT"))};
        QCOMPARE(Catalog::presetModelOptions(QuickTaskCLIBackend::opencode, openCode),
                 (QList<QuickTaskPresetModelOption>{
                     {QString(), QStringLiteral("default")},
                     {QStringLiteral("OpenAI//GPT"), QStringLiteral("openai//gpt")}}));
        // Only opencode has a default entry; elsewhere an empty identifier is just shown as it is.
        const QList<Model> codex{named(QStringLiteral("GPT-5.2")), named(QString())};
        QCOMPARE(Catalog::presetModelOptions(QuickTaskCLIBackend::codex, codex),
                 (QList<QuickTaskPresetModelOption>{{QStringLiteral("GPT-5.2"), QStringLiteral("gpt-5.2")},
                                                    {QString(), QString()}}));
    }
};

QTEST_GUILESS_MAIN(ModelCatalogTest)
#include "tst_modelcatalog.moc"
