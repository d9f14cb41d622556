// Quick-task presets: sanitising against each backend's catalog, the default choices, the
// selected-index rules and the menu titles with their shortcut labels.
#include "backends/BackendProfiles.h"
#include "backends/OpenCodeBackendProfile.h"
#include "core/UserDefaults.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QtTest>

using QuickTaskModelCatalog::Model;

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

} // namespace

class QuickTaskPresetTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
        QTest::newRow("claude: max only on opus") << claude << claudeCatalog << preset("sonnet", "max")
                                                  << preset("sonnet", "medium") << true << false;
        QTest::newRow("claude: opus max kept")
            << claude << claudeCatalog << preset("opus", "max") << preset("opus", "max") << true << true;
        QTest::newRow("claude: unknown alias")
            << claude << claudeCatalog << preset("haiku", "low") << preset("", "") << true << false;
        QTest::newRow("claude, no catalog: complete preset kept")
            << claude << none << preset("haiku", "low") << preset("haiku", "low") << true << true;
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
