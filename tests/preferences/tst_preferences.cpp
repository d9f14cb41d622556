// The preferences' rules: the preset table's limits and row changes, the model and thinking menus,
// the editor set-up line, the stored window size, and the window probe's request and answer.
#include "core/DebugWindowFrame.h"
#include "preferences/PreferencesTexts.h"
#include "preferences/PresetEditorRules.h"

#include <QtTest>

using namespace PresetEditorRules;
using namespace Qt::StringLiterals;

namespace {

QuickTaskPresetSettings presets(int count, int selected = 0)
{
    QuickTaskPresetSettings settings;
    for (int index = 0; index < count; ++index) {
        QuickTaskPreset preset;
        preset.model = u"model-%1"_s.arg(index);
        preset.reasoningEffort = u"high"_s;
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
    model(QString(), {u"low"_s, u"medium"_s, u"max"_s}, u"medium"_s),
    model(u"openai//gpt-5"_s, {u"minimal"_s, u"medium"_s}, u"minimal"_s),
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
        QCOMPARE(added.presets.constLast().reasoningEffort, u"medium"_s);
        QCOMPARE(withAddedPreset(presets(1), QuickTaskCLIBackend::codex).presets.constLast().reasoningEffort,
                 QString());

        QVERIFY(!canRemovePreset(presets(2), -1));
        QVERIFY(!canRemovePreset(presets(2), 2));
        QVERIFY(canRemovePreset(presets(2), 1));
        // The composer keeps its preset when a row above it goes, and falls back to the last row
        // when its own row was the last.
        const QuickTaskPresetSettings above = withRemovedPreset(presets(3, 2), 0);
        QCOMPARE(above.presets.constFirst().model, u"model-1"_s);
        QCOMPARE(above.selectedPresetIndex, 1);
        QCOMPARE(withRemovedPreset(presets(3, 2), 2).selectedPresetIndex, 1);
        QCOMPARE(withRemovedPreset(presets(3, 0), 2).selectedPresetIndex, 0);
    }

    // A hand-typed opencode model joins the listed ones as a custom entry; a listed one, the
    // default and an unknown codex model add nothing.
    void modelAndThinkingMenus()
    {
        const QString typed = u"Anthropic//Claude-X"_s;
        const QList<QuickTaskPresetModelOption> options =
            effectiveModelOptions(typed, QuickTaskCLIBackend::opencode, openCodeModels);
        QCOMPARE(options.size(), openCodeModels.size() + 1);
        QCOMPARE(options.constLast(), (QuickTaskPresetModelOption{typed, u"custom (anthropic//claude-x)"_s}));
        for (const auto &[model, backend] : {std::pair{u"openai//gpt-5"_s, QuickTaskCLIBackend::opencode},
                                             {QString(), QuickTaskCLIBackend::opencode},
                                             {u"gone"_s, QuickTaskCLIBackend::codex}})
            QCOMPARE(effectiveModelOptions(model, backend, openCodeModels).size(), openCodeModels.size());

        // "medium" says "default" whatever the model's own default; a hand-typed opencode model takes
        // the default entry's levels, an unknown codex model none.
        QCOMPARE(
            thinkingItems(supportedLevels(u"openai//gpt-5"_s, QuickTaskCLIBackend::opencode, openCodeModels)),
            (QList<ThinkingItem>{{u"minimal"_s, u"minimal"_s}, {u"medium default"_s, u"medium"_s}}));
        QCOMPARE(supportedLevels(u"someone//else"_s, QuickTaskCLIBackend::opencode, openCodeModels),
                 openCodeModels.constFirst().supportedReasoningLevels);
        QVERIFY(supportedLevels(u"gone"_s, QuickTaskCLIBackend::codex, openCodeModels).isEmpty());
    }

    // Whether the prompt was dismissed matters only while set-up is needed.
    void editorSetupLine()
    {
        using PreferencesTexts::editorSetupStatusLine;
        const auto status = [](EditorIntegrationStatus::Kind kind) {
            return std::optional(EditorIntegrationStatus{kind, {}, {}, {}, {}});
        };
        using Kind = EditorIntegrationStatus::Kind;
        QCOMPARE(editorSetupStatusLine(std::nullopt, true),
                 u"Editor setup status is unavailable right now."_s);
        QCOMPARE(editorSetupStatusLine(status(Kind::installed), true),
                 u"Editor setup is already in place."_s);
        QCOMPARE(editorSetupStatusLine(status(Kind::needsInstall), true),
                 u"The editor setup prompt is currently dismissed forever."_s);
        QCOMPARE(editorSetupStatusLine(status(Kind::needsInstall), false),
                 u"The editor setup prompt is already enabled when setup needs attention."_s);
    }

    // As written and read back: tst_preferences_e2e.
    void storedWindowSize()
    {
        using namespace PreferencesTexts;
        QCOMPARE(contentSizeFromString(u"{612.5,700}"_s), QSize(613, 700)); // the Mac's fractions
        for (const char *bad : {"", "640x480", "{0, 480}", "{640}", "{-5, 10}", "{1e9, 10}"})
            QVERIFY2(!contentSizeFromString(QString::fromLatin1(bad)), bad);
    }

    // The probe's answer, and a request for another window, are read end to end in
    // tst_preferences_e2e; here what that desktop never sends or shows: a request without a place
    // for the answer, and a frame in fractions (the Mac's) without a screen.
    void probeRequestAndAnswer()
    {
        using Info = QMap<QString, QString>;
        const auto request = DebugWindowRequest::fromUserInfo(
            Info{{u"target"_s, u"preferences"_s}, {u"response"_s, u"/tmp/f.json"_s}});
        QCOMPARE(request ? request->responsePath : QString(), u"/tmp/f.json"_s);
        QVERIFY(
            !DebugWindowRequest::fromUserInfo(Info{{u"target"_s, u"preferences"_s}, {u"response"_s, {}}}));
        QVERIFY(!DebugWindowRequest::fromUserInfo(Info{}));
        const DebugWindowFrameResponse response{DebugWindowTarget::preferences,
                                                8388627,
                                                {359, 45, 562, 737},
                                                {360, 65, 560, 712.5},
                                                std::nullopt};
        QVERIFY2(
            response.encoded().endsWith(R"("contentFrame":{"x":360,"y":65,"width":560,"height":712.5}})"),
            response.encoded().constData());
    }
};

QTEST_GUILESS_MAIN(PreferencesRulesTest)
#include "tst_preferences.moc"
