// The models the backends offer and the presets chosen from them: codex's cache and opencode's
// config read from a real HOME, the opencode identifiers (trimmed, "provider//model",
// deduplicated) and order, and the menu rows; then sanitising presets against each backend's
// catalog, the default choices, the selected-index rules and the menu titles with their shortcut
// labels.
#include "CatalogFiles.h"
#include "backends/BackendProfiles.h"
#include "backends/OpenCodeBackendProfile.h"
#include "core/UserDefaults.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QtTest>

#include <sys/stat.h>

using QuickTaskModelCatalog::Model;
namespace Catalog = QuickTaskModelCatalog;

namespace {

QuickTaskPreset preset(const char *model, const char *effort)
{
    return {QString::fromUtf8(model), QString::fromUtf8(effort)};
}

Model model(const char *identifier, std::initializer_list<const char *> levels, const char *defaultLevel = "",
            const char *description = "")
{
    QStringList supported;
    for (const char *level : levels)
        supported.append(QString::fromUtf8(level));
    return Model{QString::fromUtf8(identifier), QString::fromUtf8(identifier), QString::fromUtf8(description),
                 QString::fromUtf8(defaultLevel), supported};
}

// A codex catalog as the cache typically lists it.
QList<Model> codexCatalog()
{
    return {model("gpt-5.2-codex", {"low", "medium", "high", "xhigh"}, "medium",
                  "Frontier agentic coding model."),
            model("gpt-5.1-codex-mini", {"medium", "high"}, "medium", "Cheaper, faster, but less capable."),
            model("odd", {"low", "high"}, "xhigh")};
}

QList<Model> openCodeCatalog()
{
    return {OpenCodeBackendProfile::defaultModel(),
            Model{QStringLiteral("anthropic//claude-x"), QStringLiteral("Claude X"), QString(),
                  QStringLiteral("medium"), OpenCodeBackendProfile::reasoningVariants()}};
}

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

} // namespace

class QuickTaskPresetTest final : public QObject {
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
        const QList<Model> openCode{OpenCodeBackendProfile::defaultModel(), model("OpenAI//GPT", {})};
        QCOMPARE(Catalog::presetModelOptions(QuickTaskCLIBackend::opencode, openCode),
                 (QList<QuickTaskPresetModelOption>{
                     {QString(), QStringLiteral("default")},
                     {QStringLiteral("OpenAI//GPT"), QStringLiteral("openai//gpt")}}));
        // Only opencode has a default entry; elsewhere an empty identifier is just shown as it is.
        const QList<Model> codex{model("GPT-5.2", {}), model("", {})};
        QCOMPARE(Catalog::presetModelOptions(QuickTaskCLIBackend::codex, codex),
                 (QList<QuickTaskPresetModelOption>{{QStringLiteral("GPT-5.2"), QStringLiteral("gpt-5.2")},
                                                    {QString(), QString()}}));
    }

    // What a stored preset becomes against each backend's models (idempotent), and whether it was
    // complete enough to run and usable with them as it was stored: the scratch composer asks that
    // of the presets it is given.
    void sanitizing_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<QuickTaskPreset>("stored");
        QTest::addColumn<QuickTaskPreset>("expected");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<bool>("available");
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        const QList<Model> catalog = codexCatalog();
        const QList<Model> claudeCatalog = BackendProfiles::of(claude).availableModels();
        const QList<Model> none;

        QTest::newRow("codex: supported effort kept") << codex << catalog << preset("gpt-5.2-codex", "xhigh")
                                                      << preset("gpt-5.2-codex", "xhigh") << true << true;
        QTest::newRow("codex: unsupported effort becomes the model's default")
            << codex << catalog << preset("gpt-5.1-codex-mini", "low")
            << preset("gpt-5.1-codex-mini", "medium") << true << false;
        QTest::newRow("codex: model default not offered, first level")
            << codex << catalog << preset("odd", "medium") << preset("odd", "low") << true << false;
        QTest::newRow("codex: unknown model unconfigured")
            << codex << catalog << preset("gpt-4o", "high") << preset("", "") << true << false;
        QTest::newRow("codex: model match is exact")
            << codex << catalog << preset("GPT-5.2-Codex", "high") << preset("", "") << true << false;
        QTest::newRow("codex: legacy placeholder becomes the best default")
            << codex << catalog << preset("latest_best", "low") << preset("gpt-5.2-codex", "xhigh") << true
            << false;
        // Nothing to check against yet: a complete preset is kept rather than lose the user's pick.
        QTest::newRow("codex, no catalog: complete preset kept")
            << codex << none << preset("gpt-9", "turbo") << preset("gpt-9", "turbo") << true << true;
        QTest::newRow("codex, no catalog: half a preset cleared")
            << codex << none << preset("gpt-9", "") << preset("", "") << false << false;
        QTest::newRow("codex, no catalog: legacy placeholder")
            << codex << none << preset("latest_best", "low") << preset("", "") << true << true;
        // claude shares the rules; its own catalog offers max only on opus.
        QTest::newRow("claude: max only on opus") << claude << claudeCatalog << preset("sonnet", "max")
                                                  << preset("sonnet", "medium") << true << false;
        QTest::newRow("opencode: identifier canon, effort outside the variants")
            << opencode << openCodeCatalog() << preset(" anthropic/claude-x ", "xhigh")
            << preset("anthropic//claude-x", "medium") << false << false;
        QTest::newRow("opencode: blank is the default model")
            << opencode << openCodeCatalog() << preset(" \t", "max") << preset("", "max") << true << true;
        QTest::newRow("opencode: model outside the config kept")
            << opencode << openCodeCatalog() << preset("local/llama", "low") << preset("local//llama", "low")
            << true << true;
        QTest::newRow("opencode: no effort") << opencode << none << preset("local//llama", "")
                                             << preset("local//llama", "medium") << false << false;
        QTest::newRow("opencode: effort match is exact")
            << opencode << openCodeCatalog() << preset("", "High") << preset("", "medium") << false << false;
    }

    void sanitizing()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QList<Model>, models);
        QFETCH(QuickTaskPreset, stored);
        QFETCH(QuickTaskPreset, expected);
        const BackendProfile &profile = BackendProfiles::of(backend);
        const ModelChoice sanitized = profile.sanitized(stored, models);
        QCOMPARE(sanitized, expected);
        QCOMPARE(profile.sanitized(sanitized, models), expected); // idempotent
        QTEST(stored.isConfigured(backend), "configured");
        QTEST(stored.isAvailable(models, backend), "available");
    }

    // The best, fast and voice-draft defaults: which model each backend picks, and the effort
    // each role takes from it (highest, the model's own default, lowest).
    void defaultChoices_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<QuickTaskPreset>("best");
        QTest::addColumn<QuickTaskPreset>("fast");
        QTest::addColumn<QuickTaskPreset>("voiceDraft");
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        // The mini model's description mentions "faster", which makes it the fast choice.
        QTest::newRow("codex") << codex << codexCatalog() << preset("gpt-5.2-codex", "xhigh")
                               << preset("gpt-5.1-codex-mini", "medium") << preset("gpt-5.2-codex", "low");
        QTest::newRow("codex without catalog")
            << codex << QList<Model>{} << preset("", "") << preset("", "") << preset("", "");
        // Best skips mini and spark models; a spark model is fast. The default "low" is not
        // offered, and a model without levels takes "medium".
        QTest::newRow("codex: spark")
            << codex
            << QList<Model>{model("gpt-5.1-codex-mini", {"low"}),
                            model("GPT-5.2-Codex", {"medium", "xhigh"}, "low"),
                            model("gpt-5.3-codex-spark", {}, "high")}
            << preset("GPT-5.2-Codex", "xhigh") << preset("gpt-5.3-codex-spark", "medium")
            << preset("GPT-5.2-Codex", "medium");
        QTest::newRow("codex: all mini, fast by description")
            << codex
            << QList<Model>{model("a-mini", {"low", "high"}, "high"),
                            model("b-mini", {"low"}, "", "Ultra-Fast responses")}
            << preset("a-mini", "high") << preset("b-mini", "low") << preset("a-mini", "low");
        QTest::newRow("codex: an earlier fast description beats a later mini")
            << codex
            << QList<Model>{model("big", {"low"}, "", "Deep and FAST reasoning"),
                            model("small-mini", {"low"})}
            << preset("big", "low") << preset("big", "low") << preset("big", "low");
        QTest::newRow("codex: nothing fast, no levels")
            << codex << QList<Model>{model("x", {}, "high"), model("y", {"low"})} << preset("x", "medium")
            << preset("x", "medium") << preset("x", "medium");
        QTest::newRow("claude") << claude << BackendProfiles::of(claude).availableModels()
                                << preset("sonnet", "high") << preset("sonnet", "low")
                                << preset("sonnet", "low");
        // Without "sonnet" (the match is exact) the first; without high or low the nearest end.
        QTest::newRow("claude without sonnet")
            << claude << QList<Model>{model("opus", {"minimal", "xhigh"}), model("Sonnet", {"low", "high"})}
            << preset("opus", "xhigh") << preset("opus", "minimal") << preset("opus", "minimal");
        QTest::newRow("opencode") << QuickTaskCLIBackend::opencode << openCodeCatalog() << preset("", "max")
                                  << preset("", "low") << preset("", "low");
    }

    void defaultChoices()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QList<Model>, models);
        const BackendProfile &profile = BackendProfiles::of(backend);
        QTEST(QuickTaskPreset{profile.defaultChoice(ModelRole::best, models)}, "best");
        QTEST(QuickTaskPreset{profile.defaultChoice(ModelRole::fast, models)}, "fast");
        QTEST(QuickTaskPreset{profile.defaultChoice(ModelRole::voiceDraft, models)}, "voiceDraft");
    }

    void selectedIndexRules_data()
    {
        QTest::addColumn<QList<QuickTaskPreset>>("presets");
        QTest::addColumn<int>("storedIndex");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<int>("expected");
        const QuickTaskPreset good = preset("gpt-5.2-codex", "high");
        const QuickTaskPreset unknown = preset("gpt-4o", "high"); // sanitises to unconfigured
        QTest::newRow("in range and available")
            << QList<QuickTaskPreset>{good, good, good} << 1 << codexCatalog() << 1;
        QTest::newRow("clamped to the last")
            << QList<QuickTaskPreset>{good, good, good} << 5 << codexCatalog() << 2;
        // Only nine are kept: the tenth selected becomes the ninth.
        QTest::newRow("clamped after the cut to nine")
            << QList<QuickTaskPreset>(10, good) << 9 << codexCatalog() << 8;
        QTest::newRow("clamped, then the first available")
            << QList<QuickTaskPreset>{unknown, good, unknown} << 5 << codexCatalog() << 1;
        QTest::newRow("negative clamps to the first, then the first available")
            << QList<QuickTaskPreset>{unknown, good} << -3 << codexCatalog() << 1;
        QTest::newRow("none available keeps the clamped index")
            << QList<QuickTaskPreset>{unknown, unknown, unknown} << 7 << codexCatalog() << 2;
        QTest::newRow("empty list: defaults, first") << QList<QuickTaskPreset>{} << 0 << codexCatalog() << 0;
    }

    void selectedIndexRules()
    {
        QFETCH(QList<QuickTaskPreset>, presets);
        QFETCH(int, storedIndex);
        QFETCH(QList<Model>, models);
        const QuickTaskPresetSettings stored{presets, storedIndex};
        QTEST(stored.sanitized(models, QuickTaskCLIBackend::codex).selectedPresetIndex, "expected");
    }

    void menuTitles()
    {
        TestEnvironment env;
        UserDefaults defaults(env.path(QStringLiteral("defaults.conf")));
        KeyboardShortcuts shortcuts(defaults, ShortcutDisplayStyle::standard);

        QCOMPARE(preset("GPT-5.2-Codex", "High").menuTitle(0, QuickTaskCLIBackend::codex, shortcuts),
                 QStringLiteral("Ctrl+1   gpt-5.2-codex high"));
        QCOMPARE(preset("", "max").menuTitle(8, QuickTaskCLIBackend::opencode, shortcuts),
                 QStringLiteral("Ctrl+9   default max"));
        QCOMPARE(preset("gpt-5.2-codex", "").menuTitle(1, QuickTaskCLIBackend::codex, shortcuts),
                 QStringLiteral("Ctrl+2   unavailable"));
        QCOMPARE(preset("sonnet", "low").menuTitle(9, QuickTaskCLIBackend::claude, shortcuts),
                 QStringLiteral("none   sonnet low"));

        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::f1, CarbonModifiers::option},
                              *ShortcutNames::quickTaskPreset(2));
        QCOMPARE(QuickTaskPreset::keyboardShortcutLabel(1, shortcuts), QStringLiteral("Alt+F1"));
        // A cleared position still names its default key in the menu.
        shortcuts.setShortcut(std::nullopt, *ShortcutNames::quickTaskPreset(3));
        QCOMPARE(QuickTaskPreset::keyboardShortcutLabel(2, shortcuts), QStringLiteral("Ctrl+3"));
        QCOMPARE(QuickTaskPreset::keyboardShortcutLabel(-1, shortcuts), QStringLiteral("none"));
    }
};

QTEST_GUILESS_MAIN(QuickTaskPresetTest)
#include "tst_quicktaskpresets.moc"
