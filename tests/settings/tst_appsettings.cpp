// AppSettings over a real INI store and real catalog files in a temporary HOME: the backend choice,
// presets with their write-back, the start-up housekeeping and the voice-rewrite selection.
#include "CatalogFiles.h"
#include "core/UserDefaults.h"
#include "settings/AppSettings.h"
#include "settings/StoredByBackend.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

QuickTaskPreset preset(const char *model, const char *effort)
{
    return {QString::fromUtf8(model), QString::fromUtf8(effort)};
}

QJsonArray codexEntries()
{
    return {
        CatalogFiles::codexEntry(QStringLiteral("gpt-5.2-codex"),
                                 {QStringLiteral("low"), QStringLiteral("medium"), QStringLiteral("high"),
                                  QStringLiteral("xhigh")},
                                 QStringLiteral("medium")),
        CatalogFiles::codexEntry(QStringLiteral("gpt-5.1-codex-mini"),
                                 {QStringLiteral("medium"), QStringLiteral("high")}, QStringLiteral("medium"),
                                 QStringLiteral("Cheaper, faster, but less capable.")),
    };
}

// One temporary HOME with a settings file in it and the codex cache of codexEntries().
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

class AppSettingsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void backendChoice_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QuickTaskCLIBackend>("expected");
        QTest::newRow("absent") << QString() << QuickTaskCLIBackend::codex;
        QTest::newRow("claude") << QStringLiteral("claude") << QuickTaskCLIBackend::claude;
        QTest::newRow("opencode") << QStringLiteral("opencode") << QuickTaskCLIBackend::opencode;
        QTest::newRow("other case") << QStringLiteral("Claude") << QuickTaskCLIBackend::codex;
        QTest::newRow("padded") << QStringLiteral(" opencode") << QuickTaskCLIBackend::codex;
        QTest::newRow("unknown") << QStringLiteral("gemini") << QuickTaskCLIBackend::codex;
    }

    void backendChoice()
    {
        QFETCH(QString, stored);
        QFETCH(QuickTaskCLIBackend, expected);
        Fixture f;
        if (!stored.isNull())
            f.defaults.setString(AppSettings::quickTaskBackendKey, stored);
        QCOMPARE(f.settings.quickTaskCLIBackend(), expected);
        f.settings.normalizeQuickTaskCLIBackend();
        QCOMPARE(f.defaults.string(AppSettings::quickTaskBackendKey),
                 BackendProfiles::of(expected).rawValue());
    }

    void readingPresetsSanitisesAndWritesBack()
    {
        Fixture f;
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
    }

    void undecodableStoreReadsAsNothing()
    {
        Fixture f;
        f.defaults.setData(AppSettings::quickTaskPresetSettingsByBackendKey, "{\"codex\": {\"presets\": 3}}");
        const QuickTaskPresetSettings read = f.settings.quickTaskPresetSettings();
        QCOMPARE(read.presets, (QList<QuickTaskPreset>{preset("gpt-5.2-codex", "xhigh"),
                                                       preset("gpt-5.1-codex-mini", "medium")}));
        QCOMPARE(f.storedPresets().slot(QuickTaskCLIBackend::codex), read);
    }

    void presetsArePerBackend()
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
    }

    void schemaReset()
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
    }

    void obsoleteKeysRemoved()
    {
        Fixture f;
        for (const QString &key : AppSettings::obsoleteKeys())
            f.defaults.setString(key, QStringLiteral("old"));
        f.defaults.setString(AppSettings::quickTaskBackendKey, QStringLiteral("claude"));
        f.settings.removeObsoleteKeys();
        for (const QString &key : AppSettings::obsoleteKeys())
            QVERIFY2(!f.defaults.contains(key), qPrintable(key));
        QCOMPARE(f.settings.quickTaskCLIBackend(), QuickTaskCLIBackend::claude);
    }

    // Switched off, notifications stay off (tst_quicktaskmanager); a value of the wrong type is the default.
    void notificationsDefaultToOn()
    {
        Fixture f;
        QVERIFY(f.settings.areCompletionNotificationsEnabled());
        f.defaults.setString(AppSettings::completionNotificationsEnabledKey, QStringLiteral("perhaps"));
        QVERIFY(f.settings.areCompletionNotificationsEnabled());
    }

    void voiceRewriteCodexSelection()
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
    }

    void voiceRewriteStaleModelIsCleared()
    {
        Fixture f;
        f.settings.setVoicePromptRewriteModelIdentifier(QStringLiteral("gpt-5.2-codex"));
        f.settings.setVoicePromptRewriteReasoningEffort(QStringLiteral("high"));

        // While codex has no cache there is nothing to check against: not used, but kept.
        QFile::remove(f.env.path(QStringLiteral(".codex/models_cache.json")));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        QCOMPARE(f.storedVoice().slot(QuickTaskCLIBackend::codex)->modelIdentifier,
                 QStringLiteral("gpt-5.2-codex"));

        // The model is gone from a cache that exists: forgotten for good, the effort kept.
        CatalogFiles::writeCodexCache(f.env, CatalogFiles::codexCache(QJsonArray{codexEntries().at(1)}));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
        const VoicePromptRewriteSelection stored = *f.storedVoice().slot(QuickTaskCLIBackend::codex);
        QCOMPARE(stored.modelIdentifier, std::nullopt);
        QCOMPARE(stored.reasoningEffort, QStringLiteral("high"));
        QCOMPARE(f.settings.voicePromptRewritePreset(), preset("gpt-5.1-codex-mini", "high"));

        CatalogFiles::writeCodexCache(f.env, CatalogFiles::codexCache(codexEntries()));
        QCOMPARE(f.settings.voicePromptRewriteModelIdentifier(), std::nullopt);
    }

    void voiceRewriteOpenCodeSelection()
    {
        Fixture f;
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

QTEST_GUILESS_MAIN(AppSettingsTest)
#include "tst_appsettings.moc"
