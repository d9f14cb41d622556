// Quick-task presets: sanitising against each backend's catalog, the default presets, the
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
using Profile = ModelRole;

namespace {

QuickTaskPreset preset(const char *model, const char *effort)
{
    return {QString::fromUtf8(model), QString::fromUtf8(effort)};
}

QStringList levels(std::initializer_list<const char *> names)
{
    QStringList list;
    for (const char *name : names)
        list.append(QString::fromUtf8(name));
    return list;
}

// A codex catalog as the cache typically lists it.
QList<Model> codexCatalog()
{
    return {
        Model{QStringLiteral("gpt-5.2-codex"), QStringLiteral("gpt-5.2-codex"),
              QStringLiteral("Frontier agentic coding model."), QStringLiteral("medium"),
              levels({"low", "medium", "high", "xhigh"})},
        Model{QStringLiteral("gpt-5.1-codex-mini"), QStringLiteral("gpt-5.1-codex-mini"),
              QStringLiteral("Cheaper, faster, but less capable."), QStringLiteral("medium"),
              levels({"medium", "high"})},
        Model{QStringLiteral("odd"), QStringLiteral("odd"), QString(), QStringLiteral("xhigh"),
              levels({"low", "high"})},
    };
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
    void sanitizing_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<QuickTaskPreset>("stored");
        QTest::addColumn<QuickTaskPreset>("expected");
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        const QList<Model> catalog = codexCatalog();
        const QList<Model> &claudeCatalog =
            BackendProfiles::of(QuickTaskCLIBackend::claude).availableModels();

        QTest::newRow("codex: supported effort kept")
            << codex << catalog << preset("gpt-5.2-codex", "xhigh") << preset("gpt-5.2-codex", "xhigh");
        QTest::newRow("codex: unsupported effort becomes the model's default")
            << codex << catalog << preset("gpt-5.1-codex-mini", "low")
            << preset("gpt-5.1-codex-mini", "medium");
        QTest::newRow("codex: model default not offered, first level")
            << codex << catalog << preset("odd", "medium") << preset("odd", "low");
        QTest::newRow("codex: unknown model unconfigured")
            << codex << catalog << preset("gpt-4o", "high") << preset("", "");
        QTest::newRow("codex: model match is exact")
            << codex << catalog << preset("GPT-5.2-Codex", "high") << preset("", "");
        QTest::newRow("codex: legacy placeholder becomes the best default")
            << codex << catalog << preset("latest_best", "low") << preset("gpt-5.2-codex", "xhigh");
        QTest::newRow("codex, no catalog: complete preset kept")
            << codex << QList<Model>{} << preset("gpt-9", "turbo") << preset("gpt-9", "turbo");
        QTest::newRow("codex, no catalog: half a preset cleared")
            << codex << QList<Model>{} << preset("gpt-9", "") << preset("", "");
        QTest::newRow("codex, no catalog: legacy placeholder")
            << codex << QList<Model>{} << preset("latest_best", "low") << preset("", "");
        QTest::newRow("claude: max only on opus")
            << claude << claudeCatalog << preset("sonnet", "max") << preset("sonnet", "medium");
        QTest::newRow("claude: opus max kept")
            << claude << claudeCatalog << preset("opus", "max") << preset("opus", "max");
        QTest::newRow("claude: unknown alias")
            << claude << claudeCatalog << preset("haiku", "low") << preset("", "");
        QTest::newRow("claude, no catalog: complete preset kept")
            << claude << QList<Model>{} << preset("haiku", "low") << preset("haiku", "low");
        QTest::newRow("opencode: identifier canon, effort outside the variants")
            << opencode << openCodeCatalog() << preset(" anthropic/claude-x ", "xhigh")
            << preset("anthropic//claude-x", "medium");
        QTest::newRow("opencode: default model kept")
            << opencode << openCodeCatalog() << preset("", "max") << preset("", "max");
        QTest::newRow("opencode: model outside the config kept")
            << opencode << QList<Model>{} << preset("local/llama", "") << preset("local//llama", "medium");
        QTest::newRow("opencode: effort match is exact")
            << opencode << openCodeCatalog() << preset("", "High") << preset("", "medium");
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
    }

    void defaultPresets_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<QuickTaskPreset>("best");
        QTest::addColumn<QuickTaskPreset>("fast");
        QTest::addColumn<QuickTaskPreset>("voiceDraft");
        // The mini model's description mentions "faster", which makes it the fast choice.
        QTest::newRow("codex") << QuickTaskCLIBackend::codex << codexCatalog()
                               << preset("gpt-5.2-codex", "xhigh") << preset("gpt-5.1-codex-mini", "medium")
                               << preset("gpt-5.2-codex", "low");
        QTest::newRow("codex without catalog") << QuickTaskCLIBackend::codex << QList<Model>{}
                                               << preset("", "") << preset("", "") << preset("", "");
        QTest::newRow("claude") << QuickTaskCLIBackend::claude
                                << BackendProfiles::of(QuickTaskCLIBackend::claude).availableModels()
                                << preset("sonnet", "high") << preset("sonnet", "low")
                                << preset("sonnet", "low");
        QTest::newRow("opencode") << QuickTaskCLIBackend::opencode << openCodeCatalog() << preset("", "max")
                                  << preset("", "low") << preset("", "low");
    }

    void defaultPresets()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QList<Model>, models);
        QTEST(QuickTaskPreset{BackendProfiles::of(backend).defaultChoice(Profile::best, models)}, "best");
        QTEST(QuickTaskPreset{BackendProfiles::of(backend).defaultChoice(Profile::fast, models)}, "fast");
        QTEST(QuickTaskPreset{BackendProfiles::of(backend).defaultChoice(Profile::voiceDraft, models)},
              "voiceDraft");
    }

    void configuredAndAvailable_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QList<Model>>("models");
        QTest::addColumn<QuickTaskPreset>("subject");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<bool>("available");
        const auto codex = QuickTaskCLIBackend::codex;
        QTest::newRow("codex in catalog")
            << codex << codexCatalog() << preset("gpt-5.2-codex", "high") << true << true;
        QTest::newRow("codex effort not taken")
            << codex << codexCatalog() << preset("gpt-5.1-codex-mini", "low") << true << false;
        QTest::newRow("codex model gone")
            << codex << codexCatalog() << preset("gpt-4o", "low") << true << false;
        QTest::newRow("codex without catalog")
            << codex << QList<Model>{} << preset("gpt-4o", "low") << true << true;
        QTest::newRow("codex half") << codex << QList<Model>{} << preset("gpt-4o", "") << false << false;
        QTest::newRow("opencode default model")
            << QuickTaskCLIBackend::opencode << openCodeCatalog() << preset("", "max") << true << true;
        QTest::newRow("opencode xhigh") << QuickTaskCLIBackend::opencode << openCodeCatalog()
                                        << preset("anthropic//claude-x", "xhigh") << false << false;
        QTest::newRow("opencode model outside the config")
            << QuickTaskCLIBackend::opencode << openCodeCatalog() << preset("other//m", "low") << true
            << true;
    }

    void configuredAndAvailable()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QList<Model>, models);
        QFETCH(QuickTaskPreset, subject);
        QTEST(subject.isConfigured(backend), "configured");
        QTEST(subject.isAvailable(models, backend), "available");
    }

    void resolvedModelUsesTheOpenCodeCanon()
    {
        const BackendProfile &opencode = BackendProfiles::of(QuickTaskCLIBackend::opencode);
        const auto resolved = opencode.resolvedModel(preset("anthropic/claude-x", "low"), openCodeCatalog());
        QVERIFY(resolved);
        QCOMPARE(resolved->displayName, QStringLiteral("Claude X"));
        QCOMPARE(opencode.resolvedModel(preset("", "low"), openCodeCatalog()),
                 OpenCodeBackendProfile::defaultModel());
    }

    void settingsSanitizing()
    {
        const QList<Model> catalog = codexCatalog();
        const auto codex = QuickTaskCLIBackend::codex;

        // Nothing stored: the best and fast defaults.
        const QuickTaskPresetSettings fresh =
            QuickTaskPresetSettings::sanitized(std::nullopt, catalog, codex);
        QCOMPARE(fresh.presets, (QList<QuickTaskPreset>{preset("gpt-5.2-codex", "xhigh"),
                                                        preset("gpt-5.1-codex-mini", "medium")}));
        QCOMPARE(fresh.selectedPresetIndex, 0);
        QCOMPARE(QuickTaskPresetSettings{}.sanitized(catalog, codex), fresh);

        // Ten stored read back as the first nine, each sanitised.
        QuickTaskPresetSettings ten;
        for (int index = 0; index < 10; ++index)
            ten.presets.append(index == 9 ? preset("gpt-5.2-codex", "high")
                                          : preset("gpt-5.1-codex-mini", "low"));
        ten.selectedPresetIndex = 9;
        const QuickTaskPresetSettings nine = ten.sanitized(catalog, codex);
        QCOMPARE(nine.presets.size(), 9);
        QVERIFY(std::all_of(nine.presets.cbegin(), nine.presets.cend(), [](const QuickTaskPreset &p) {
            return p == preset("gpt-5.1-codex-mini", "medium");
        }));
        QCOMPARE(nine.selectedPresetIndex, 8);
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

    void resolvedSelectedIndexOutOfRange()
    {
        const QuickTaskPresetSettings settings{{preset("", "low"), preset("", "max")}, 0};
        QCOMPARE(settings.resolvedSelectedPresetIndex(QuickTaskCLIBackend::opencode, 2, {}), 0);
        QCOMPARE(settings.resolvedSelectedPresetIndex(QuickTaskCLIBackend::opencode, -1, {}), 0);
        QCOMPARE(settings.resolvedSelectedPresetIndex(QuickTaskCLIBackend::opencode, 1, {}), 1);
    }

    void menuTitles()
    {
        TestEnvironment env;
        UserDefaults defaults(env.path(QStringLiteral("defaults.conf")));
        KeyboardShortcuts shortcuts(defaults, ShortcutDisplayStyle::standard);
        KeyboardShortcuts macShortcuts(defaults, ShortcutDisplayStyle::mac);

        QCOMPARE(preset("GPT-5.2-Codex", "High").menuTitle(0, QuickTaskCLIBackend::codex, shortcuts),
                 QStringLiteral("Ctrl+1   gpt-5.2-codex high"));
        QCOMPARE(preset("GPT-5.2-Codex", "High").menuTitle(0, QuickTaskCLIBackend::codex, macShortcuts),
                 QStringLiteral("\u23181   gpt-5.2-codex high"));
        QCOMPARE(preset("", "max").menuTitle(8, QuickTaskCLIBackend::opencode, shortcuts),
                 QStringLiteral("Ctrl+9   default max"));
        QCOMPARE(preset("gpt-5.2-codex", "").menuTitle(1, QuickTaskCLIBackend::codex, shortcuts),
                 QStringLiteral("Ctrl+2   unavailable"));
        QCOMPARE(preset("", "xhigh").menuTitle(1, QuickTaskCLIBackend::opencode, shortcuts),
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
