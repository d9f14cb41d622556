// The scratch composer's availability, presets, attachments and submit rules (offscreen).
#include "composer/AttachmentPillView.h"
#include "composer/AttachmentStripView.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/ScratchComposer.h"
#include "core/UserDefaults.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QPromise>
#include <QPushButton>
#include <QStandardItemModel>
#include <QtTest>

namespace {
using Availabilities = QuickTaskCLIInstallationAvailabilities;

// What the composer handed over when submitted.
struct Submissions {
    int submits = 0;
    QList<PromptAttachment> attachments;
    std::optional<QuickTaskPreset> preset;
};

QuickTaskModelCatalog::Model model(const QString &identifier, const QStringList &efforts)
{
    QuickTaskModelCatalog::Model result;
    result.identifier = identifier;
    result.displayName = identifier;
    result.defaultReasoningLevel = efforts.value(0);
    result.supportedReasoningLevels = efforts;
    return result;
}

// A scratch composer whose installation check answers when the test says so.
struct Fixture {
    TestEnvironment env;
    UserDefaults defaults{env.path(QStringLiteral("settings.conf"))};
    KeyboardShortcuts shortcuts{defaults};
    QPromise<Availabilities> promise;
    QList<QuickTaskCLIBackend> asked; // the preferred backend of each check
    Submissions delegate;
    std::unique_ptr<ScratchComposer> controller;

    explicit Fixture(QuickTaskCLIBackend backend = QuickTaskCLIBackend::codex)
    {
        // codex's own model cache, as the real tool leaves it.
        QDir().mkpath(env.path(QStringLiteral(".codex")));
        QFile::copy(qEnvironmentVariable("TARVEL_TEST_DATA") + QStringLiteral("/codex/models_cache.json"),
                    env.path(QStringLiteral(".codex/models_cache.json")));
        AppSettings(defaults).setQuickTaskCLIBackend(backend);
        promise.start();
        ComposerServices services;
        services.defaults = &defaults;
        services.shortcuts = &shortcuts;
        services.checkInstallations = [this](QuickTaskCLIBackend preferred) {
            asked.append(preferred);
            return promise.future();
        };
        controller = std::make_unique<ScratchComposer>(QString(), QList<PromptAttachment>{}, services);
        QObject::connect(controller.get(), &ScratchComposer::submitted,
                         [this](const QString &, const QList<PromptAttachment> &attachments,
                                const std::optional<QuickTaskPreset> &preset) {
                             ++delegate.submits;
                             delegate.attachments = attachments;
                             delegate.preset = preset;
                         });
        controller->showWindow();
    }

    void answer(const Availabilities &availabilities)
    {
        promise.addResult(availabilities);
        promise.finish();
        QTRY_VERIFY(controller->availability().state != ScratchComposerAvailability::State::checking);
    }
};

Availabilities allInstalled()
{
    return {{QuickTaskCLIBackend::codex,
             QuickTaskCLIInstallationAvailability::available(QStringLiteral("codex-cli 1"))},
            {QuickTaskCLIBackend::claude,
             QuickTaskCLIInstallationAvailability::available(QStringLiteral("2 (Claude Code)"))},
            {QuickTaskCLIBackend::opencode,
             QuickTaskCLIInstallationAvailability::available(QStringLiteral("1.0"))}};
}
} // namespace

class ScratchComposerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void unavailableBackendsSayWhatIsMissing()
    {
        QuickTaskPresetSettings unusable;
        unusable.presets = {{QStringLiteral("no-such-model"), QStringLiteral("high")}};
        const QList<QuickTaskModelCatalog::Model> models{
            model(QStringLiteral("gpt-5.5"), {QStringLiteral("high")})};
        const auto installed = QuickTaskCLIInstallationAvailability::available(QStringLiteral("1.0"));
        const auto check = [](const ScratchComposerAvailability &result, const QString &title) {
            QCOMPARE(result.state, ScratchComposerAvailability::State::unavailable);
            QCOMPARE(result.title, title);
        };
        const ScratchComposerAvailability missing = ScratchComposerAvailability::resolved(
            QuickTaskCLIBackend::codex,
            QuickTaskCLIInstallationAvailability::unavailable(
                QStringLiteral("Could not find the Codex CLI executable.")),
            unusable, models);
        check(missing, QStringLiteral("Codex CLI is unavailable."));
        QCOMPARE(missing.detail, QStringLiteral("Could not find the Codex CLI executable."));
        check(ScratchComposerAvailability::resolved(QuickTaskCLIBackend::codex, installed, {}, {}),
              QStringLiteral("Codex is installed, but quick tasks are not ready yet."));
        const ScratchComposerAvailability noPreset =
            ScratchComposerAvailability::resolved(QuickTaskCLIBackend::claude, installed, unusable, models);
        check(noPreset, QStringLiteral("No quick-task preset is available."));
        QVERIFY(noPreset.detail.contains(QStringLiteral("Claude")));
    }

    void checkingThenReady()
    {
        Fixture f;
        QCOMPARE(f.controller->availabilityTitle()->text(), QStringLiteral("Checking Codex CLI\u2026"));
        QCOMPARE(f.controller->availabilityDetail()->text(), f.controller->availability().detail);
        ComposerTextView *text = f.controller->panel()->textView();
        QVERIFY(text->isReadOnly());
        QCOMPARE(text->focusPolicy(), Qt::NoFocus);
        QVERIFY(!f.controller->panel()->submitButton()->isEnabled());
        f.controller->submitPressed(); // beeps, hands nothing over
        QCOMPARE(f.delegate.submits, 0);
        const int checkingHeight = f.controller->panel()->height();

        // The chosen backend's pass alone makes it ready: a slower backend is not waited for, and
        // every backend's answer after it changes nothing.
        QCOMPARE(f.asked, QList{QuickTaskCLIBackend::codex});
        f.promise.addResult(
            Availabilities{{QuickTaskCLIBackend::codex, allInstalled().value(QuickTaskCLIBackend::codex)}});
        QTRY_VERIFY(f.controller->availability().isReady());
        QCOMPARE(f.controller->availability().version, QStringLiteral("codex-cli 1"));
        f.answer(allInstalled());
        QCOMPARE(f.controller->backend(), QuickTaskCLIBackend::codex);
        QVERIFY(!text->isReadOnly());
        QVERIFY(f.controller->panel()->submitButton()->isEnabled());
        QVERIFY(f.controller->attachmentStrip()->isVisibleTo(f.controller->panel()));
        QTRY_VERIFY(f.controller->panel()->height() != checkingHeight); // overlay room gives way to the strip
        f.controller->submitPressed();
        QCOMPARE(f.delegate.submits, 1);
        QVERIFY(f.delegate.preset.has_value());
    }

    void missingBackendFallsBackToAnInstalledOne()
    {
        Fixture f(QuickTaskCLIBackend::claude);
        Availabilities availabilities = allInstalled();
        availabilities[QuickTaskCLIBackend::claude] =
            QuickTaskCLIInstallationAvailability::unavailable(QStringLiteral("gone"));
        f.answer(availabilities);
        QCOMPARE(f.controller->backend(), QuickTaskCLIBackend::codex);
        QCOMPARE(AppSettings(f.defaults).quickTaskCLIBackend(), QuickTaskCLIBackend::codex);

        // An answer that arrives after the backend was changed again (two quick steps in the
        // preferences) is stale: it does not write its backend back over the newer choice.
        Fixture quick;
        quick.promise.addResult(allInstalled());
        AppSettings(quick.defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QTRY_COMPARE(quick.asked, (QList{QuickTaskCLIBackend::codex, QuickTaskCLIBackend::claude}));
        QCOMPARE(AppSettings(quick.defaults).quickTaskCLIBackend(), QuickTaskCLIBackend::claude);
    }

    void presetPopupRules()
    {
        Fixture f;
        QuickTaskPresetSettings settings;
        settings.presets = {{QStringLiteral("gpt-5.2-codex"), QStringLiteral("high")},
                            {QStringLiteral("gpt-5.1-codex-mini"), QStringLiteral("high")},
                            {QStringLiteral("gpt-5.1-codex-mini"), QStringLiteral("medium")}};
        settings.selectedPresetIndex = 0;
        AppSettings(f.defaults).setQuickTaskPresetSettings(settings);
        f.answer(allInstalled());

        QComboBox *popup = f.controller->presetPopup();
        QCOMPARE(popup->count(), 3);
        QCOMPARE(popup->itemText(2),
                 settings.presets.at(2).menuTitle(2, QuickTaskCLIBackend::codex, f.shortcuts));
        auto *items = qobject_cast<QStandardItemModel *>(popup->model());
        for (int row = 0; row < 3; ++row)
            QVERIFY(items->item(row)->isEnabled());

        // Ctrl+3 picks position 3; Ctrl+9 names no preset and changes nothing.
        QTest::keyClick(f.controller->panel()->textView(), Qt::Key_3, Qt::ControlModifier);
        QCOMPARE(popup->currentIndex(), 2);
        QTest::keyClick(f.controller->panel()->textView(), Qt::Key_9, Qt::ControlModifier);
        QCOMPARE(popup->currentIndex(), 2);
        QVERIFY(f.controller->panel()->textView()->toPlainText().isEmpty()); // the keys typed nothing
        QCOMPARE(AppSettings(f.defaults).quickTaskPresetSettings().selectedPresetIndex, 2);
        f.controller->submitPressed();
        QCOMPARE(f.delegate.preset->model, QStringLiteral("gpt-5.1-codex-mini"));
        QCOMPARE(f.delegate.preset->reasoningEffort, QStringLiteral("medium"));
    }

    void attachmentsAreNormalizedAndFoldersRefusedForOpenCode()
    {
        QTemporaryDir files;
        const QString file = files.filePath(QStringLiteral("notes.md"));
        QFile(file).open(QIODevice::WriteOnly);
        const QString folder = files.filePath(QStringLiteral("src"));
        QDir().mkpath(folder);
        {
            Fixture f;
            f.answer(allInstalled());
            f.controller->appendAttachments(
                {QUrl::fromLocalFile(file), QUrl::fromLocalFile(folder),
                 QUrl::fromLocalFile(files.filePath(QStringLiteral("src/../notes.md")))});
            QCOMPARE(f.controller->attachments().size(), 2);
            QCOMPARE(f.controller->attachmentStrip()->attachments().size(), 2);
            // The strip's pill hands its remove button to the composer.
            f.controller->attachmentStrip()->pillViews().constFirst()->removeButton()->click();
            QCOMPARE(f.controller->attachments().size(), 1);
            QCOMPARE(f.controller->attachmentStrip()->attachments().size(), 1);
            QVERIFY(QFile::exists(file)); // the user's own file is never deleted
        }
        {
            Fixture f(QuickTaskCLIBackend::opencode);
            f.answer(allInstalled());
            f.controller->appendAttachments({QUrl::fromLocalFile(folder), QUrl::fromLocalFile(file)});
            QVERIFY(f.controller->isShowingUnsupportedDirectoryAttachmentAlert());
            auto *alert =
                f.controller->panel()->findChild<QMessageBox *>(QStringLiteral("FolderAttachmentAlert"));
            QVERIFY(alert);
            QCOMPARE(alert->text(), QStringLiteral("OpenCode cannot use folder attachment."));
            QCOMPARE(f.controller->attachments().size(), 1); // the file still came in
            QVERIFY(!f.controller->attachments().constFirst().isDirectory());
        }
    }

    // While its check runs, and when no backend answered it, the composer takes nothing.
    void notReadyComposerAttachesAndSubmitsNothing()
    {
        QTemporaryDir files;
        Fixture f;
        f.controller->appendAttachments({QUrl::fromLocalFile(files.path())});
        QVERIFY(f.controller->attachments().isEmpty());
        const auto missing = QuickTaskCLIInstallationAvailability::unavailable(QStringLiteral("gone"));
        f.answer({{QuickTaskCLIBackend::codex, missing},
                  {QuickTaskCLIBackend::claude, missing},
                  {QuickTaskCLIBackend::opencode, missing}});
        QCOMPARE(f.controller->availability().state, ScratchComposerAvailability::State::unavailable);
        QTest::keyClick(f.controller->panel()->textView(), Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(f.delegate.submits, 0);
        f.controller->appendAttachments({QUrl::fromLocalFile(files.path())});
        QVERIFY(f.controller->attachments().isEmpty());
    }
};

QTEST_MAIN(ScratchComposerTest)
#include "tst_scratchcomposer.moc"
