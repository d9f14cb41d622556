// The user-defaults store (typed values, no caching between instances, values of the wrong type,
// where the application's own store lives), and AppSettings over it with real catalog files in a
// temporary HOME: the backend choice, presets with their write-back, the start-up housekeeping and
// the voice-rewrite selection.
#include "CatalogFiles.h"
#include "core/UserDefaults.h"
#include "settings/AppSettings.h"
#include "settings/StoredByBackend.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QSignalSpy>
#include <QtTest>

namespace {

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

class AppSettingsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void typedValuesSurviveAReopen()
    {
        Fixture f;
        f.defaults.setString(QStringLiteral("Text"), QStringLiteral("a, \"quoted\" = value\nnext line"));
        f.defaults.setBool(QStringLiteral("Flag"), false);
        f.defaults.setInteger(QStringLiteral("Count"), -42);
        f.defaults.setData(QStringLiteral("Blob"), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
        f.defaults.setRecord(QStringLiteral("Record"), Sample{7});
        UserDefaults reopened(f.defaults.location());
        QCOMPARE(reopened.string(QStringLiteral("Text")), QStringLiteral("a, \"quoted\" = value\nnext line"));
        QCOMPARE(reopened.boolean(QStringLiteral("Flag")), false);
        QCOMPARE(reopened.integer(QStringLiteral("Count")), -42);
        QCOMPARE(reopened.data(QStringLiteral("Blob")), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
        QCOMPARE(reopened.record<Sample>(QStringLiteral("Record"))->number, 7);
        QVERIFY(reopened.data(QStringLiteral("Record"))->contains("\"number\": 7"));
        QVERIFY(!reopened.contains(QStringLiteral("Missing")));
        QCOMPARE(reopened.string(QStringLiteral("Missing")), std::nullopt);
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

    void wrongTypesAndUndecodableRecordsReadAsAbsent()
    {
        Fixture f;
        UserDefaults &defaults = f.defaults;
        defaults.setData(QStringLiteral("Blob"), "bytes");
        defaults.setString(QStringLiteral("Word"), QStringLiteral("maybe"));
        QCOMPARE(defaults.string(QStringLiteral("Blob")), std::nullopt);
        QCOMPARE(defaults.boolean(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(defaults.integer(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(defaults.data(QStringLiteral("Word")), std::nullopt);

        defaults.setData(QStringLiteral("Record"), "{\"number\": \"seven\"}");
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
        defaults.setData(QStringLiteral("Record"), "not json");
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
        defaults.setString(QStringLiteral("Record"), QStringLiteral("{\"number\": 7}")); // text, not data
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
    }

    // Window frames as text: fractions survive, loose spacing reads, anything else is absent.
    void rectsAsTheMacWritesThem_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<QRectF>>("expected");

        QTest::newRow("spaced") << QStringLiteral(" {{ 1 ,-2 },{3.5, 4e2}} ")
                                << std::optional<QRectF>(QRectF(1, -2, 3.5, 400));
        QTest::newRow("trailing text")
            << QStringLiteral("{{1, 2}, {3, 4}} and more") << std::optional<QRectF>();
        QTest::newRow("empty") << QString() << std::optional<QRectF>();
    }
    void rectsAsTheMacWritesThem()
    {
        QFETCH(QString, text);
        QFETCH(std::optional<QRectF>, expected);
        Fixture f;
        UserDefaults &defaults = f.defaults;
        defaults.setString(QStringLiteral("Frame"), text);
        QCOMPARE(defaults.rect(QStringLiteral("Frame")), expected);

        const QRectF fractional(12.25, -350.1, 640.5, 1e-3);
        defaults.setRect(QStringLiteral("Frame"), fractional);
        QCOMPARE(defaults.rect(QStringLiteral("Frame")), std::optional<QRectF>(fractional));
    }

    void standardStoreFollowsTheConfigHome()
    {
        Fixture f;
        QCOMPARE(UserDefaults::standard().location(),
                 f.env.path(QStringLiteral(".config/Tarvel/Tarvel.conf")));
        UserDefaults::standard().setBool(QStringLiteral("Probe"), true);
        QVERIFY(f.defaults.boolean(QStringLiteral("Probe")));
    }

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
