// The preferences' rules: the preset table's limits and row changes, the model and thinking menus,
// the editor set-up line, the stored window size, and the window probe's request and answer.
#include "core/DebugWindowFrame.h"
#include "preferences/PreferencesTexts.h"
#include "preferences/PresetEditorRules.h"

#include <QtTest>

using namespace PresetEditorRules;

namespace {

QuickTaskPresetSettings presets(int count, int selected = 0)
{
    QuickTaskPresetSettings settings;
    for (int index = 0; index < count; ++index) {
        QuickTaskPreset preset;
        preset.model = QStringLiteral("model-%1").arg(index);
        preset.reasoningEffort = QStringLiteral("high");
        settings.presets.append(preset);
    }
    settings.selectedPresetIndex = selected;
    return settings;
}

BackendModel model(const QString &identifier, const QStringList &levels, const QString &defaultLevel)
{
    return BackendModel{identifier, identifier, QString(), defaultLevel, levels};
}

const QList<BackendModel> openCodeModels{
    model(QString(), {QStringLiteral("low"), QStringLiteral("medium"), QStringLiteral("max")},
          QStringLiteral("medium")),
    model(QStringLiteral("openai//gpt-5"), {QStringLiteral("minimal"), QStringLiteral("medium")},
          QStringLiteral("minimal")),
};

} // namespace

class PreferencesRulesTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The table's limits through its buttons: tst_preferenceswindow.
    void presetTableRowChanges()
    {
        const QuickTaskPresetSettings added = withAddedPreset(presets(8), QuickTaskCLIBackend::opencode);
        QCOMPARE(added.presets.size(), 9);
        QCOMPARE(added.presets.constLast().model, QString());
        QCOMPARE(added.presets.constLast().reasoningEffort, QStringLiteral("medium"));
        QCOMPARE(withAddedPreset(presets(1), QuickTaskCLIBackend::codex).presets.constLast().reasoningEffort,
                 QString());

        QVERIFY(!canRemovePreset(presets(2), -1));
        QVERIFY(!canRemovePreset(presets(2), 2));
        QVERIFY(canRemovePreset(presets(2), 1));
        // The composer keeps its preset when a row above it goes, and falls back to the last row
        // when its own row was the last.
        const QuickTaskPresetSettings above = withRemovedPreset(presets(3, 2), 0);
        QCOMPARE(above.presets.constFirst().model, QStringLiteral("model-1"));
        QCOMPARE(above.selectedPresetIndex, 1);
        QCOMPARE(withRemovedPreset(presets(3, 2), 2).selectedPresetIndex, 1);
        QCOMPARE(withRemovedPreset(presets(3, 0), 2).selectedPresetIndex, 0);
    }

    // A hand-typed opencode model joins the listed ones as a custom entry; a listed one, the
    // default and an unknown codex model add nothing.
    void modelOptions()
    {
        const QString typed = QStringLiteral("Anthropic//Claude-X");
        const QList<QuickTaskPresetModelOption> options =
            effectiveModelOptions(typed, QuickTaskCLIBackend::opencode, openCodeModels);
        QCOMPARE(options.size(), openCodeModels.size() + 1);
        QCOMPARE(options.constLast(),
                 (QuickTaskPresetModelOption{typed, QStringLiteral("custom (anthropic//claude-x)")}));
        for (const auto &[model, backend] :
             {std::pair{QStringLiteral("openai//gpt-5"), QuickTaskCLIBackend::opencode},
              {QString(), QuickTaskCLIBackend::opencode},
              {QStringLiteral("gone"), QuickTaskCLIBackend::codex}})
            QCOMPARE(effectiveModelOptions(model, backend, openCodeModels).size(), openCodeModels.size());
    }

    // "medium" says "default" whatever the model's own default; a hand-typed opencode model takes the
    // default entry's levels, an unknown codex model none.
    void thinkingMenu()
    {
        QCOMPARE(thinkingItems(supportedLevels(QStringLiteral("openai//gpt-5"), QuickTaskCLIBackend::opencode,
                                               openCodeModels)),
                 (QList<ThinkingItem>{{QStringLiteral("minimal"), QStringLiteral("minimal")},
                                      {QStringLiteral("medium default"), QStringLiteral("medium")}}));
        QCOMPARE(
            supportedLevels(QStringLiteral("someone//else"), QuickTaskCLIBackend::opencode, openCodeModels),
            openCodeModels.constFirst().supportedReasoningLevels);
        QVERIFY(
            supportedLevels(QStringLiteral("gone"), QuickTaskCLIBackend::codex, openCodeModels).isEmpty());
    }

    void editorSetupLine()
    {
        using PreferencesTexts::editorSetupStatusLine;
        const auto status = [](EditorIntegrationStatus::Kind kind) {
            return std::optional(EditorIntegrationStatus{kind, {}, {}, {}, {}});
        };
        using Kind = EditorIntegrationStatus::Kind;
        QCOMPARE(editorSetupStatusLine(std::nullopt, true),
                 QStringLiteral("Editor setup status is unavailable right now."));
        QCOMPARE(editorSetupStatusLine(status(Kind::installed), true),
                 QStringLiteral("Editor setup is already in place."));
        QCOMPARE(editorSetupStatusLine(status(Kind::configuredElsewhere), false),
                 QStringLiteral("Another editor is already configured for prompt editing."));
        QCOMPARE(editorSetupStatusLine(status(Kind::needsInstall), true),
                 QStringLiteral("The editor setup prompt is currently dismissed forever."));
        QCOMPARE(editorSetupStatusLine(status(Kind::needsInstall), false),
                 QStringLiteral("The editor setup prompt is already enabled when setup needs attention."));
    }

    void storedWindowSize()
    {
        using namespace PreferencesTexts;
        QCOMPARE(contentSizeString(QSize(640, 480)), QStringLiteral("{640, 480}"));
        QCOMPARE(contentSizeFromString(contentSizeString(QSize(640, 480))), QSize(640, 480));
        QCOMPARE(contentSizeFromString(QStringLiteral("{612.5,700}")),
                 QSize(613, 700)); // the Mac's fractions
        for (const char *bad : {"", "640x480", "{0, 480}", "{640}", "{-5, 10}", "{1e9, 10}"})
            QVERIFY2(!contentSizeFromString(QString::fromLatin1(bad)), bad);
    }

    void probeRequestAndAnswer()
    {
        using Info = QMap<QString, QString>;
        const auto request = DebugWindowRequest::fromUserInfo(
            Info{{QStringLiteral("target"), QStringLiteral("preferences")},
                 {QStringLiteral("response"), QStringLiteral("/tmp/f.json")}});
        QVERIFY(request);
        QCOMPARE(request->responsePath, QStringLiteral("/tmp/f.json"));
        QVERIFY(
            !DebugWindowRequest::fromUserInfo(Info{{QStringLiteral("target"), QStringLiteral("errors")},
                                                   {QStringLiteral("response"), QStringLiteral("/tmp/f")}}));
        QVERIFY(
            !DebugWindowRequest::fromUserInfo(Info{{QStringLiteral("target"), QStringLiteral("preferences")},
                                                   {QStringLiteral("response"), QString()}}));
        QVERIFY(!DebugWindowRequest::fromUserInfo(Info{}));

        DebugWindowFrameResponse response{DebugWindowTarget::preferences,
                                          8388627,
                                          {359, 45, 562, 737},
                                          {360, 65, 560, 712.5},
                                          std::nullopt};
        const QByteArray withoutScreen =
            "{\"target\":\"preferences\",\"windowNumber\":8388627,"
            "\"frame\":{\"x\":359,\"y\":45,\"width\":562,\"height\":737},"
            "\"contentFrame\":{\"x\":360,\"y\":65,\"width\":560,\"height\":712.5}}";
        QCOMPARE(response.encoded(), withoutScreen);
        response.screenVisibleFrame = DebugWindowRect{0, 28, 1280, 772};
        QCOMPARE(response.encoded(),
                 withoutScreen.chopped(1) +
                     ",\"screenVisibleFrame\":{\"x\":0,\"y\":28,\"width\":1280,\"height\":772}}");
    }
};

QTEST_GUILESS_MAIN(PreferencesRulesTest)
#include "tst_preferences.moc"
