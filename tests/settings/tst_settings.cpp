// The models the backends offer and the presets chosen from them: codex's cache and opencode's
// config read from a real HOME, the opencode identifiers (trimmed, "provider//model",
// deduplicated) and order, and the menu rows; sanitising presets against each backend's catalog,
// the default choices, the selected-index rules and the menu titles with their shortcut labels.
// Then the user-defaults store (typed values, no caching between instances, values of the wrong
// type, where the application's own store lives), and AppSettings over it with real catalog files:
// the backend choice, presets with their write-back, the start-up housekeeping and the
// voice-rewrite selection.
#include "CatalogFiles.h"
#include "backends/BackendProfiles.h"
#include "backends/OpenCodeBackendProfile.h"
#include "core/UserDefaults.h"
#include "settings/AppSettings.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"
#include "settings/StoredByBackend.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
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

// Names the row of a table-driven loop when a check in it fails.
#define TABLE_ROW(name)                                                                                      \
    const auto rowGuard = qScopeGuard([row = QString(name)] {                                                \
        if (QTest::currentTestFailed())                                                                      \
            qWarning("in row %s", qPrintable(row));                                                          \
    })

struct Sample {
    int number = 0;

    QJsonObject toJson() const { return QJsonObject{{QStringLiteral("number"), number}}; }
    static Sample fromJson(const QJsonObject &object)
    {
        const std::optional<qint32> number = JSONCoding::optionalInt32(object, QStringLiteral("number"));
        if (!number)
            throw DecodingError(QStringLiteral("No number."));
        return Sample{*number};
    }
};

// The first two models of codexCatalog() as codex's cache lists them.
QJsonArray codexEntries()
{
    QJsonArray entries;
    for (const Model &model : codexCatalog().first(2))
        entries.append(CatalogFiles::codexEntry(model.identifier, model.supportedReasoningLevels,
                                                model.defaultReasoningLevel, model.description));
    return entries;
}

// One temporary HOME with a settings file in it (where the application's own would be) and the
// codex cache of codexEntries().
struct Fixture {
    Fixture()
        : defaults(env.path(QStringLiteral(".config/Tarvel/Tarvel.conf")))
        , settings(defaults)
    {
        CatalogFiles::writeCodexCache(env, CatalogFiles::codexCache(codexEntries()));
    }

    StoredQuickTaskPresetSettingsByBackend storedPresets() const
    {
        return defaults
            .record<StoredQuickTaskPresetSettingsByBackend>(AppSettings::quickTaskPresetSettingsByBackendKey)
            .value_or(StoredQuickTaskPresetSettingsByBackend());
    }
    StoredVoicePromptRewriteSettingsByBackend storedVoice() const
    {
        return defaults
            .record<StoredVoicePromptRewriteSettingsByBackend>(
                AppSettings::voicePromptRewriteSettingsByBackendKey)
            .value_or(StoredVoicePromptRewriteSettingsByBackend());
    }

    TestEnvironment env;
    UserDefaults defaults;
    AppSettings settings;
};

} // namespace

class SettingsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // As the tools write them, in their default folders and where CODEX_HOME and XDG_CONFIG_HOME
    // move them. codex: file order, hidden and internal models left out, a model listed unless it
    // says otherwise ("List" is not "list"). opencode: the default entry, then the configured
    // default model (matched without regard to case), then the rest in case-insensitive order.
    void catalogFilesAsTheToolsWriteThem()
    {
        TestEnvironment env;
        CatalogFiles::writeCodexCache(env, CatalogFiles::sample(QStringLiteral("codex/models_cache.json")));
        CatalogFiles::writeOpenCodeConfig(env,
                                          CatalogFiles::sample(QStringLiteral("opencode/opencode.json")));
        QList<Model> models = modelsOf(QuickTaskCLIBackend::codex);
        QCOMPARE(identifiers(models),
                 (QStringList{QStringLiteral("gpt-5.2-codex"), QStringLiteral("gpt-5.1-codex-max"),
                              QStringLiteral("gpt-5.1-codex-mini"), QStringLiteral("gpt-5.2")}));
        QCOMPARE(models.at(2),
                 (Model{QStringLiteral("gpt-5.1-codex-mini"),
                        QStringLiteral("gpt-5.1-codex-mini"),
                        QStringLiteral("Optimized for codex. Cheaper, faster, but less capable."),
                        QStringLiteral("medium"),
                        {QStringLiteral("medium"), QStringLiteral("high")}}));

        models = modelsOf(QuickTaskCLIBackend::opencode);
        QCOMPARE(identifiers(models), (QStringList{QString(), QStringLiteral("anthropic//claude-sonnet-4-5"),
                                                   QStringLiteral("anthropic//claude-haiku-4-5"),
                                                   QStringLiteral("ollama//llama3.1:8b"),
                                                   QStringLiteral("ollama//qwen2.5-coder:14b"),
                                                   QStringLiteral("openrouter//anthropic/claude-sonnet-4-5"),
                                                   QStringLiteral("openrouter//Deepseek/deepseek-chat")}));
        QCOMPARE(models.at(0), OpenCodeBackendProfile::defaultModel());
        QCOMPARE(models.at(2),
                 (Model{QStringLiteral("anthropic//claude-haiku-4-5"), QStringLiteral("Claude Haiku 4.5"),
                        QStringLiteral("Anthropic Claude Haiku 4.5"), QStringLiteral("medium"),
                        OpenCodeBackendProfile::reasoningVariants()}));
        // Without a model name the identifier is shown and the provider alone describes it.
        QCOMPARE(models.at(3).displayName, QStringLiteral("ollama//llama3.1:8b"));
        QCOMPARE(models.at(3).description, QStringLiteral("Ollama (local)"));

        env.set("CODEX_HOME", env.path(QStringLiteral("elsewhere/codex")));
        env.set("XDG_CONFIG_HOME", env.path(QStringLiteral("elsewhere/config")));
        const auto entry = [](const char *slug, const QString &visibility) {
            return CatalogFiles::codexEntry(QString::fromUtf8(slug), {QStringLiteral("low")},
                                            QStringLiteral("low"), QStringLiteral("d"), visibility);
        };
        CatalogFiles::write(env, QStringLiteral("elsewhere/codex/models_cache.json"),
                            CatalogFiles::codexCache(QJsonArray{entry("hidden", QStringLiteral("hide")),
                                                                entry("no-key", QString()),
                                                                entry("capital", QStringLiteral("List")),
                                                                entry("listed", QStringLiteral("list"))}));
        QCOMPARE(identifiers(modelsOf(QuickTaskCLIBackend::codex)),
                 (QStringList{QStringLiteral("no-key"), QStringLiteral("listed")}));
        QCOMPARE(modelsOf(QuickTaskCLIBackend::opencode),
                 QList<Model>{OpenCodeBackendProfile::defaultModel()});
        CatalogFiles::write(env, QStringLiteral("elsewhere/config/opencode/opencode.json"),
                            CatalogFiles::sample(QStringLiteral("opencode/opencode.json")));
        QCOMPARE(modelsOf(QuickTaskCLIBackend::opencode).size(), 7);
    }

    // A file the backend cannot read, a missing, oversized or special one (a FIFO would hold a
    // read for ever) gives only the built-in models, and no error.
    void unreadableToolFilesGiveNoModels()
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
        // One bad entry spoils the whole codex file, even next to good ones.
        for (const QByteArray &codex :
             {QByteArray("{\"models\": ["), QByteArray("{\"fetched_at\": \"2026-01-01T00:00:00Z\"}"),
              QByteArray("[]"), CatalogFiles::codexCache(QJsonArray{good, missingDescription}),
              CatalogFiles::codexCache(QJsonArray{good, levelWithoutEffort}),
              CatalogFiles::codexCache(QJsonArray{numericSlug, good})}) {
            CatalogFiles::writeCodexCache(env, codex);
            QVERIFY2(modelsOf(QuickTaskCLIBackend::codex).isEmpty(), codex.constData());
        }
        for (const QByteArray &opencode :
             {QByteArray("{\n // mine\n \"provider\": {}\n}"), QByteArray(R"({"model": "anthropic/claude"})"),
              QByteArray(
                  R"({"provider": {"a": {"models": {"x": {}}}, "anthropic": {"options": {"timeout": 1}}}})"),
              QByteArray(R"({"provider": {"a": {"models": {"x": {"name": 1}}}}})"), QByteArray()}) {
            CatalogFiles::writeOpenCodeConfig(env, opencode);
            QVERIFY2(onlyBuiltIn(), opencode.constData());
        }

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
    // The walk trims and deduplicates; the sort puts the configured default first and is stable.
    void openCodeWalkAndSort()
    {
        TestEnvironment env;
        CatalogFiles::writeOpenCodeConfig(env, R"({
            "model": " p / B ",
            "provider": {
                "p": {"models": {"c": {}, "b": {}, "a": {}, "A": {}, "B": {}}},
                "alpha ": {"models": {"gpt": {"name": "from a padded provider key"}}},
                "  ": {"name": "Blank", "models": {"m": {"name": "bare"}, " solo ": {}}},
                "alpha": {"models": {" gpt ": {"name": " "}, "/gpt": {"name": "duplicate"}, "": {}}},
                "beta": {"name": " Beta ", "models": {}}
            }
        })");
        const QList<Model> models = modelsOf(QuickTaskCLIBackend::opencode);
        // "alpha" + "" gives "alpha"; "alpha" + "/gpt" and "alpha " + "gpt" canonicalise to the same
        // "alpha//gpt" as "alpha" + " gpt ", and the first in key order wins; the blank provider
        // contributes bare model keys. The default matches "B" and "b" first; "A" and "a" compare
        // equal without case, so they keep walk order ("A" sorts first by key).
        QCOMPARE(
            identifiers(models),
            (QStringList{QString(), QStringLiteral("p//B"), QStringLiteral("p//b"), QStringLiteral("alpha"),
                         QStringLiteral("alpha//gpt"), QStringLiteral("m"), QStringLiteral("p//A"),
                         QStringLiteral("p//a"), QStringLiteral("p//c"), QStringLiteral("solo")}));
        QCOMPARE(models.at(4).displayName, QStringLiteral("alpha//gpt")); // a blank name does not count
        QCOMPARE(models.at(5).displayName, QStringLiteral("bare"));
        QCOMPARE(models.at(5).description, QStringLiteral("Blank bare"));
    }

    // What a stored preset becomes against each backend's models (idempotent), and whether it was
    // complete enough to run and usable with them as it was stored: the scratch composer asks that
    // of the presets it is given.
    void sanitizing()
    {
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        const QList<Model> catalog = codexCatalog();
        const QList<Model> none;
        struct Row {
            const char *name;
            QuickTaskCLIBackend backend;
            QList<Model> models;
            QuickTaskPreset stored, expected;
            bool configured, available;
        };
        for (const Row &row : QList<Row>{
                 {"codex: supported effort kept", codex, catalog, preset("gpt-5.2-codex", "xhigh"),
                  preset("gpt-5.2-codex", "xhigh"), true, true},
                 {"codex: unsupported effort becomes the model's default", codex, catalog,
                  preset("gpt-5.1-codex-mini", "low"), preset("gpt-5.1-codex-mini", "medium"), true, false},
                 {"codex: model default not offered, first level", codex, catalog, preset("odd", "medium"),
                  preset("odd", "low"), true, false},
                 {"codex: unknown model unconfigured", codex, catalog, preset("gpt-4o", "high"),
                  preset("", ""), true, false},
                 {"codex: model match is exact", codex, catalog, preset("GPT-5.2-Codex", "high"),
                  preset("", ""), true, false},
                 {"codex: legacy placeholder becomes the best default", codex, catalog,
                  preset("latest_best", "low"), preset("gpt-5.2-codex", "xhigh"), true, false},
                 // Nothing to check against yet: a complete preset is kept rather than lose the user's pick.
                 {"codex, no catalog: complete preset kept", codex, none, preset("gpt-9", "turbo"),
                  preset("gpt-9", "turbo"), true, true},
                 {"codex, no catalog: half a preset cleared", codex, none, preset("gpt-9", ""),
                  preset("", ""), false, false},
                 {"codex, no catalog: legacy placeholder", codex, none, preset("latest_best", "low"),
                  preset("", ""), true, true},
                 // claude shares the rules; its own catalog offers max only on opus.
                 {"claude: max only on opus", claude, modelsOf(claude), preset("sonnet", "max"),
                  preset("sonnet", "medium"), true, false},
                 {"opencode: identifier canon, effort outside the variants", opencode, openCodeCatalog(),
                  preset(" anthropic/claude-x ", "xhigh"), preset("anthropic//claude-x", "medium"), false,
                  false},
                 {"opencode: blank is the default model", opencode, openCodeCatalog(), preset(" \t", "max"),
                  preset("", "max"), true, true},
                 {"opencode: model outside the config kept", opencode, openCodeCatalog(),
                  preset("local/llama", "low"), preset("local//llama", "low"), true, true},
                 {"opencode: no effort", opencode, none, preset("local//llama", ""),
                  preset("local//llama", "medium"), false, false},
                 {"opencode: effort match is exact", opencode, openCodeCatalog(), preset("", "High"),
                  preset("", "medium"), false, false}}) {
            TABLE_ROW(QString::fromUtf8(row.name));
            const BackendProfile &profile = BackendProfiles::of(row.backend);
            const ModelChoice sanitized = profile.sanitized(row.stored, row.models);
            QCOMPARE(sanitized, row.expected);
            QCOMPARE(profile.sanitized(sanitized, row.models), row.expected); // idempotent
            QCOMPARE(row.stored.isConfigured(row.backend), row.configured);
            QCOMPARE(row.stored.isAvailable(row.models, row.backend), row.available);
        }
    }

    // The best, fast and voice-draft defaults: which model each backend picks, and the effort
    // each role takes from it (highest, the model's own default, lowest).
    void defaultChoices()
    {
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        struct Row {
            const char *name;
            QuickTaskCLIBackend backend;
            QList<Model> models;
            QuickTaskPreset best, fast, voiceDraft;
        };
        for (const Row &row : QList<Row>{
                 // The mini model's description mentions "faster", which makes it the fast choice.
                 {"codex", codex, codexCatalog(), preset("gpt-5.2-codex", "xhigh"),
                  preset("gpt-5.1-codex-mini", "medium"), preset("gpt-5.2-codex", "low")},
                 {"codex without catalog", codex, {}, preset("", ""), preset("", ""), preset("", "")},
                 // Best skips mini and spark models; a spark model is fast. The default "low" is not
                 // offered, and a model without levels takes "medium".
                 {"codex: spark",
                  codex,
                  {model("gpt-5.1-codex-mini", {"low"}), model("GPT-5.2-Codex", {"medium", "xhigh"}, "low"),
                   model("gpt-5.3-codex-spark", {}, "high")},
                  preset("GPT-5.2-Codex", "xhigh"),
                  preset("gpt-5.3-codex-spark", "medium"),
                  preset("GPT-5.2-Codex", "medium")},
                 {"codex: all mini, fast by description",
                  codex,
                  {model("a-mini", {"low", "high"}, "high"),
                   model("b-mini", {"low"}, "", "Ultra-Fast responses")},
                  preset("a-mini", "high"),
                  preset("b-mini", "low"),
                  preset("a-mini", "low")},
                 {"codex: an earlier fast description beats a later mini",
                  codex,
                  {model("big", {"low"}, "", "Deep and FAST reasoning"), model("small-mini", {"low"})},
                  preset("big", "low"),
                  preset("big", "low"),
                  preset("big", "low")},
                 {"codex: nothing fast, no levels",
                  codex,
                  {model("x", {}, "high"), model("y", {"low"})},
                  preset("x", "medium"),
                  preset("x", "medium"),
                  preset("x", "medium")},
                 {"claude", claude, modelsOf(claude), preset("sonnet", "high"), preset("sonnet", "low"),
                  preset("sonnet", "low")},
                 // Without "sonnet" (the match is exact) the first; without high or low the nearest end.
                 {"claude without sonnet",
                  claude,
                  {model("opus", {"minimal", "xhigh"}), model("Sonnet", {"low", "high"})},
                  preset("opus", "xhigh"),
                  preset("opus", "minimal"),
                  preset("opus", "minimal")},
                 {"opencode", QuickTaskCLIBackend::opencode, openCodeCatalog(), preset("", "max"),
                  preset("", "low"), preset("", "low")}}) {
            TABLE_ROW(QString::fromUtf8(row.name));
            const BackendProfile &profile = BackendProfiles::of(row.backend);
            QCOMPARE(QuickTaskPreset{profile.defaultChoice(ModelRole::best, row.models)}, row.best);
            QCOMPARE(QuickTaskPreset{profile.defaultChoice(ModelRole::fast, row.models)}, row.fast);
            QCOMPARE(QuickTaskPreset{profile.defaultChoice(ModelRole::voiceDraft, row.models)},
                     row.voiceDraft);
        }
    }

    void selectedIndexRules()
    {
        const QuickTaskPreset good = preset("gpt-5.2-codex", "high");
        const QuickTaskPreset unknown = preset("gpt-4o", "high"); // sanitises to unconfigured
        const auto selected = [](const QList<QuickTaskPreset> &presets, int storedIndex) {
            return QuickTaskPresetSettings{presets, storedIndex}
                .sanitized(codexCatalog(), QuickTaskCLIBackend::codex)
                .selectedPresetIndex;
        };
        QCOMPARE(selected({good, good, good}, 1), 1);
        QCOMPARE(selected(QList<QuickTaskPreset>(10, good), 9), 8); // only nine are kept
        QCOMPARE(selected({unknown, good, unknown}, 5), 1);         // clamped, then the first available
        QCOMPARE(selected({unknown, good}, -3), 1);                 // clamped to the first, then available
        QCOMPARE(selected({unknown, unknown, unknown}, 7), 2);      // none available: the clamped index
        QCOMPARE(selected({}, 0), 0);                               // empty list: the defaults, first
    }

    // The model rows of the preset menus, and the presets' titles with their shortcut labels.
    void menus()
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

    void typedValuesSurviveAReopen()
    {
        Fixture f;
        f.defaults.setString(QStringLiteral("Text"), QStringLiteral("a, \"quoted\" = value\nnext line"));
        f.defaults.setBool(QStringLiteral("Flag"), false);
        f.defaults.setInteger(QStringLiteral("Count"), -42);
        f.defaults.setData(QStringLiteral("Blob"), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
        f.defaults.setRecord(QStringLiteral("Record"), Sample{7});
        // The application's own store is that file (the first to ask opens it), read afresh.
        UserDefaults &reopened = UserDefaults::standard();
        QCOMPARE(reopened.location(), f.env.path(QStringLiteral(".config/Tarvel/Tarvel.conf")));
        QCOMPARE(reopened.string(QStringLiteral("Text")), QStringLiteral("a, \"quoted\" = value\nnext line"));
        QCOMPARE(reopened.boolean(QStringLiteral("Flag")), false);
        QCOMPARE(reopened.integer(QStringLiteral("Count")), -42);
        QCOMPARE(reopened.data(QStringLiteral("Blob")), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
        QCOMPARE(reopened.record<Sample>(QStringLiteral("Record"))->number, 7);
        QVERIFY(reopened.data(QStringLiteral("Record"))->contains("\"number\": 7"));
        QVERIFY(!reopened.contains(QStringLiteral("Missing")));
        QCOMPARE(reopened.string(QStringLiteral("Missing")), std::nullopt);

        // A value of another type, or a record that does not decode, reads as absent.
        QCOMPARE(f.defaults.string(QStringLiteral("Blob")), std::nullopt);
        f.defaults.setString(QStringLiteral("Word"), QStringLiteral("maybe"));
        QCOMPARE(f.defaults.boolean(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(f.defaults.integer(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(f.defaults.data(QStringLiteral("Word")), std::nullopt);
        for (const QByteArray &record : {QByteArray("{\"number\": \"seven\"}"), QByteArray("not json")}) {
            f.defaults.setData(QStringLiteral("Record"), record);
            QVERIFY(!f.defaults.record<Sample>(QStringLiteral("Record")));
        }
        f.defaults.setString(QStringLiteral("Record"), QStringLiteral("{\"number\": 7}")); // text, not data
        QVERIFY(!f.defaults.record<Sample>(QStringLiteral("Record")));

        // Window frames as text: fractions survive, loose spacing reads, anything else is absent.
        const QString key = QStringLiteral("Frame");
        const QRectF fractional(12.25, -350.1, 640.5, 1e-3);
        f.defaults.setRect(key, fractional);
        QCOMPARE(f.defaults.rect(key), std::optional<QRectF>(fractional));
        f.defaults.setString(key, QStringLiteral(" {{ 1 ,-2 },{3.5, 4e2}} "));
        QCOMPARE(f.defaults.rect(key), std::optional<QRectF>(QRectF(1, -2, 3.5, 400)));
        for (const QString &text : {QStringLiteral("{{1, 2}, {3, 4}} and more"), QString()}) {
            f.defaults.setString(key, text);
            QCOMPARE(f.defaults.rect(key), std::nullopt);
        }
    }

    // Nothing is cached: another store on the file, or another writer of it, is seen at once, and a
    // watching store announces the others' writes (once each) but not its own.
    void everyReadSeesTheFile()
    {
        Fixture f;
        UserDefaults &first = f.defaults;
        UserDefaults second(first.location());
        first.watchForExternalChanges();
        QSignalSpy changes(&first, &UserDefaults::didChange);
        QCOMPARE(second.integer(QStringLiteral("Count")), std::nullopt);
        first.setInteger(QStringLiteral("Count"), 1);
        QCOMPARE(second.integer(QStringLiteral("Count")), 1);
        QCOMPARE(changes.takeFirst().constFirst().toString(), QStringLiteral("Count"));
        QTest::qWait(200);
        QVERIFY(changes.isEmpty());
        second.remove(QStringLiteral("Count"));
        QVERIFY(!first.contains(QStringLiteral("Count")));
        QTRY_COMPARE(changes.size(), 1);
        QCOMPARE(changes.takeFirst().constFirst().toString(), QString());

        QFile file(first.location());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("[General]\nText=after and longer\nFlag=true\nCount=12\n");
        file.close();
        QCOMPARE(first.string(QStringLiteral("Text")), QStringLiteral("after and longer"));
        QCOMPARE(first.boolean(QStringLiteral("Flag")), true);
        QCOMPARE(first.integer(QStringLiteral("Count")), 12);
        QTRY_COMPARE(changes.size(), 1);

        // Storing what is stored already leaves the file alone: every request notes its folder.
        first.setString(QStringLiteral("Text"), QStringLiteral("after and longer"));
        QCOMPARE(changes.size(), 1);
        first.remove(QStringLiteral("Absent"));
        QCOMPARE(changes.size(), 1);
    }

    // Only the exact name of a backend counts; anything else is codex, and is stored as such.
    void backendChoice()
    {
        for (const auto &[stored, expected] :
             {std::pair{QString(), QuickTaskCLIBackend::codex},
              std::pair{QStringLiteral("claude"), QuickTaskCLIBackend::claude},
              std::pair{QStringLiteral("Claude"), QuickTaskCLIBackend::codex},
              std::pair{QStringLiteral(" opencode"), QuickTaskCLIBackend::codex}}) {
            Fixture f;
            if (!stored.isNull())
                f.defaults.setString(AppSettings::quickTaskBackendKey, stored);
            QCOMPARE(f.settings.quickTaskCLIBackend(), expected);
            f.settings.normalizeQuickTaskCLIBackend();
            QCOMPARE(f.defaults.string(AppSettings::quickTaskBackendKey),
                     BackendProfiles::of(expected).rawValue());
        }
    }

    // Presets are kept per backend, sanitised when stored and when read, and written back.
    void presetsArePerBackendAndSanitised()
    {
        Fixture f;
        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::opencode);
        f.settings.setQuickTaskPresetSettings(
            {{preset("anthropic/claude-x", "xhigh"), preset("", "max")}, 1});
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::opencode),
                 (QuickTaskPresetSettings{{preset("anthropic//claude-x", "medium"), preset("", "max")}, 1}));
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::codex), std::nullopt);

        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QCOMPARE(f.settings.quickTaskPresetSettings().presets,
                 (QList<QuickTaskPreset>{preset("sonnet", "high"), preset("sonnet", "low")}));
        QVERIFY(f.storedPresets().slot(QuickTaskCLIBackend::opencode).has_value());

        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::codex);
        StoredQuickTaskPresetSettingsByBackend stored;
        QuickTaskPresetSettings codex;
        for (int index = 0; index < 10; ++index)
            codex.presets.append(preset("gpt-5.1-codex-mini", "high"));
        codex.presets[1] = preset("gpt-5.1-codex-mini", "xhigh");
        codex.presets[2] = preset("gone", "high");
        codex.selectedPresetIndex = 2;
        stored.setSlot(QuickTaskCLIBackend::codex, codex);
        stored.setSlot(QuickTaskCLIBackend::claude, QuickTaskPresetSettings{{preset("opus", "max")}, 0});
        f.defaults.setRecord(AppSettings::quickTaskPresetSettingsByBackendKey, stored);

        const QuickTaskPresetSettings read = f.settings.quickTaskPresetSettings();
        QCOMPARE(read.presets.size(), 9);
        QCOMPARE(read.presets.at(1), preset("gpt-5.1-codex-mini", "medium"));
        QCOMPARE(read.presets.at(2), preset("", ""));
        QCOMPARE(read.selectedPresetIndex, 0); // index 2 is unconfigured now
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::codex), read);
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::claude),
                 stored.slot(QuickTaskCLIBackend::claude)); // other backends untouched
        QCOMPARE(f.settings.selectedQuickTaskPreset(), preset("gpt-5.1-codex-mini", "high"));

        // A second read finds nothing to fix and leaves the store alone.
        QSignalSpy writes(&f.defaults, &UserDefaults::didChange);
        QCOMPARE(f.settings.quickTaskPresetSettings(), read);
        QCOMPARE(writes.count(), 0);

        // An undecodable store reads as nothing stored: the defaults, written back.
        f.defaults.setData(AppSettings::quickTaskPresetSettingsByBackendKey, "{\"codex\": {\"presets\": 3}}");
        const QuickTaskPresetSettings defaults = f.settings.quickTaskPresetSettings();
        QCOMPARE(defaults.presets, (QList<QuickTaskPreset>{preset("gpt-5.2-codex", "xhigh"),
                                                           preset("gpt-5.1-codex-mini", "medium")}));
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::codex), defaults);
    }

    // At start-up: an older schema's quick-task configuration is reset once, obsolete keys go.
    void startUpHousekeeping()
    {
        Fixture f;
        f.defaults.setData(AppSettings::quickTaskPresetSettingsByBackendKey, "{}");
        f.defaults.setData(AppSettings::voicePromptRewriteSettingsByBackendKey, "{}");
        f.settings.resetQuickTaskConfigurationForCurrentSchemaIfNeeded();
        QVERIFY(!f.defaults.contains(AppSettings::quickTaskPresetSettingsByBackendKey));
        QVERIFY(!f.defaults.contains(AppSettings::voicePromptRewriteSettingsByBackendKey));
        QCOMPARE(f.defaults.integer(AppSettings::quickTaskConfigurationSchemaVersionKey), 1);

        // At the current schema nothing is touched, also after a restart (a fresh store on the file).
        f.defaults.setData(AppSettings::quickTaskPresetSettingsByBackendKey, "{}");
        UserDefaults reopened(f.defaults.location());
        AppSettings(reopened).resetQuickTaskConfigurationForCurrentSchemaIfNeeded();
        QVERIFY(reopened.contains(AppSettings::quickTaskPresetSettingsByBackendKey));

        for (const QString &key : AppSettings::obsoleteKeys())
            f.defaults.setString(key, QStringLiteral("old"));
        f.defaults.setString(AppSettings::quickTaskBackendKey, QStringLiteral("claude"));
        f.settings.removeObsoleteKeys();
        for (const QString &key : AppSettings::obsoleteKeys())
            QVERIFY2(!f.defaults.contains(key), qPrintable(key));
        QCOMPARE(f.settings.quickTaskCLIBackend(), QuickTaskCLIBackend::claude);

        // Completion notifications are on unless switched off (tst_quicktaskmanager); a value of
        // the wrong type is the default.
        QVERIFY(f.settings.areCompletionNotificationsEnabled());
        f.defaults.setString(AppSettings::completionNotificationsEnabledKey, QStringLiteral("perhaps"));
        QVERIFY(f.settings.areCompletionNotificationsEnabled());
    }

    void voiceRewriteSelection()
    {
        Fixture f;
        // A choice stored with the override switched off is not used, nor cleared as a stale one.
        StoredVoicePromptRewriteSettingsByBackend stored;
        stored.setSlot(
            QuickTaskCLIBackend::codex,
            VoicePromptRewriteSelection{QStringLiteral("gpt-5.1-codex-mini"), std::nullopt, false});
        f.defaults.setRecord(AppSettings::voicePromptRewriteSettingsByBackendKey, stored);
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.2-codex", "low"));
        QCOMPARE(f.storedVoice(), stored);

        f.settings.setVoicePromptRewriteModelIdentifier(QStringLiteral("gpt-5.1-codex-mini"));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), QStringLiteral("gpt-5.1-codex-mini"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.1-codex-mini", "medium"));

        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("high"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.1-codex-mini", "high"));
        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("low")); // not taken by the mini model
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.1-codex-mini", "medium"));
        QCOMPARE(f.settings.voicePromptRewriteReasoningEffort(), QStringLiteral("low"));

        // Turned off: the default model, with the stored effort where it fits.
        f.settings.setVoicePromptRewriteModelIdentifier(std::nullopt);
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.2-codex", "low"));

        // The selection belongs to codex: claude has its own.
        f.settings.setVoicePromptRewriteModelIdentifier(QStringLiteral("gpt-5.2-codex"));
        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("sonnet", "low"));
        QCOMPARE(f.storedVoice().slot(QuickTaskCLIBackend::codex)->modelIdentifier,
                 QStringLiteral("gpt-5.2-codex"));

        // Back on codex: a model gone from its cache is forgotten, one opencode has not listed is taken.
        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::codex);
        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("high"));

        // While codex has no cache there is nothing to check against: not used, but kept.
        QFile::remove(f.env.path(QStringLiteral(".codex/models_cache.json")));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        QCOMPARE(f.storedVoice().slot(QuickTaskCLIBackend::codex)->modelIdentifier,
                 QStringLiteral("gpt-5.2-codex"));

        // The model is gone from a cache that exists: forgotten for good, the effort kept.
        CatalogFiles::writeCodexCache(f.env, CatalogFiles::codexCache(QJsonArray{codexEntries().at(1)}));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        const VoicePromptRewriteSelection forgotten = *f.storedVoice().slot(QuickTaskCLIBackend::codex);
        QCOMPARE(forgotten.modelIdentifier, std::nullopt);
        QCOMPARE(forgotten.reasoningEffort, QStringLiteral("high"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.1-codex-mini", "high"));
        CatalogFiles::writeCodexCache(f.env, CatalogFiles::codexCache(codexEntries()));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);

        f.settings.setQuickTaskCLIBackend(QuickTaskCLIBackend::opencode);
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("", "low"));
        // opencode resolves models the config file does not list, so any identifier is taken.
        f.settings.setVoicePromptRewriteModelIdentifier(QStringLiteral(" anthropic/claude-x "));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), QStringLiteral("anthropic//claude-x"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("anthropic//claude-x", "low"));
        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("xhigh"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("anthropic//claude-x", "low"));
        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("max"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("anthropic//claude-x", "max"));
    }
};

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"
