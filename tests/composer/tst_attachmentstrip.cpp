// The attachment strip: wrapping, pill widths, placeholder texts, drops and removal (offscreen).
#include "composer/AttachmentPillView.h"
#include "composer/AttachmentStripView.h"

#include <QAbstractButton>
#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDropEvent>
#include <QImage>
#include <QMimeData>
#include <QSignalSpy>
#include <QtTest>

namespace {

PromptAttachment attachment(const QString &name)
{
    return PromptAttachment::make(QStringLiteral("/tmp/tarvel-strip-test/") + name);
}

QString longName(QChar letter)
{
    return QString(60, letter) + QStringLiteral(" report final.txt");
}

QList<PromptAttachment> threeWideAttachments()
{
    return {attachment(longName(u'a')), attachment(longName(u'b')), attachment(longName(u'c'))};
}

QMimeData *fileDrag(const QList<QUrl> &urls)
{
    auto *data = new QMimeData;
    data->setUrls(urls);
    return data;
}

QImage rendered(QWidget &widget)
{
    QImage image(widget.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    widget.render(&image);
    return image;
}

} // namespace

class AttachmentStripTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void wideAttachmentsWrapIntoRows_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<QList<int>>("rowOfPill");
        QTest::addColumn<int>("height");

        // Three pills at the 220 cap: two fit side by side only from 446 (220 + 6 + 220).
        QTest::newRow("one per row") << 300 << QList<int>{0, 1, 2} << 3 * 22 + 2 * 6;
        QTest::newRow("one short of two") << 445 << QList<int>{0, 1, 2} << 3 * 22 + 2 * 6;
        QTest::newRow("two then one") << 446 << QList<int>{0, 0, 1} << 2 * 22 + 6;
        QTest::newRow("one row") << 672 << QList<int>{0, 0, 0} << 22;
    }
    void wideAttachmentsWrapIntoRows()
    {
        QFETCH(int, width);
        QFETCH(QList<int>, rowOfPill);
        QFETCH(int, height);

        AttachmentStripView strip;
        strip.setAttachments(threeWideAttachments());
        QCOMPARE(strip.measuredHeight(width), height);
        QCOMPARE(strip.heightForWidth(width), height);

        strip.resize(width, height);
        strip.show(); // a hidden widget gets its resize event only when shown
        QCOMPARE(strip.pillViews().size(), 3);
        for (qsizetype i = 0; i < 3; ++i) {
            const QRect frame = strip.pillViews()[i]->geometry();
            QCOMPARE(frame.width(), AttachmentStripView::maxPillWidth);
            QCOMPARE(frame.height(), AttachmentStripView::pillHeight);
            QCOMPARE(frame.y(), rowOfPill[i] * (22 + 6));
            QVERIFY(frame.right() < width);
        }
        if (rowOfPill[1] == rowOfPill[0])
            QCOMPARE(strip.pillViews()[1]->x(), 220 + 6);
    }

    void framesFollowPreferredWidths()
    {
        const QList<QRect> frames = AttachmentStripView::wrappedPillFrames({100, 100, 100, 500}, 210);
        QCOMPARE(frames, (QList<QRect>{QRect(0, 0, 100, 22), QRect(106, 0, 100, 22), QRect(0, 28, 100, 22),
                                       QRect(0, 56, 210, 22)}));
        QVERIFY(AttachmentStripView::wrappedPillFrames({}, 300).isEmpty());
    }

    void pillWidthIsCappedAndTitleElided()
    {
        const PromptAttachment wide = attachment(longName(u'x'));
        AttachmentPillView widePill(wide);
        QCOMPARE(widePill.preferredWidth(AttachmentStripView::maxPillWidth),
                 AttachmentStripView::maxPillWidth);
        QCOMPARE(widePill.preferredWidth(90), 90);
        widePill.resize(AttachmentStripView::maxPillWidth, AttachmentStripView::pillHeight);
        widePill.show();
        QCOMPARE(widePill.title(), longName(u'x'));
        const QString shown = widePill.displayedTitle();
        QVERIFY2(shown.contains(QChar(0x2026)), qPrintable(shown));
        QVERIFY(shown.startsWith(u"xxx"));
        QVERIFY(shown.endsWith(u"final.txt"));
        QCOMPARE(widePill.toolTip(), wide.path);

        AttachmentPillView shortPill(attachment(QStringLiteral("a.txt")));
        const int shortWidth = shortPill.preferredWidth(AttachmentStripView::maxPillWidth);
        QVERIFY(shortWidth < AttachmentStripView::maxPillWidth);
        QVERIFY(shortWidth > shortPill.fontMetrics().horizontalAdvance(QStringLiteral("a.txt")));
        shortPill.resize(shortWidth, AttachmentStripView::pillHeight);
        shortPill.show();
        QCOMPARE(shortPill.displayedTitle(), QStringLiteral("a.txt"));

        // A longer name never gets a narrower pill.
        AttachmentPillView longerPill(attachment(QStringLiteral("a-longer-name.txt")));
        QVERIFY(longerPill.preferredWidth(AttachmentStripView::maxPillWidth) > shortWidth);
    }

    void shortPillsShareARow()
    {
        AttachmentStripView strip;
        strip.setAttachments({attachment(QStringLiteral("a.txt")), attachment(QStringLiteral("b.txt"))});
        strip.resize(400, strip.measuredHeight(400));
        strip.show();
        QCOMPARE(strip.measuredHeight(400), 22);
        const auto pills = strip.pillViews();
        QCOMPARE(pills[0]->pos(), QPoint(0, 0));
        QCOMPARE(pills[1]->pos(), QPoint(pills[0]->width() + 6, 0));
        QCOMPARE(pills[0]->title(), QStringLiteral("a.txt"));
        QCOMPARE(pills[1]->title(), QStringLiteral("b.txt"));
    }

    void namesThatFitAreShownWhole()
    {
        AttachmentStripView strip;
        const QStringList names{QStringLiteral("notes.md"), QStringLiteral("screenshot.png"),
                                QStringLiteral("main.cpp"), QStringLiteral("WWW mmm.txt")};
        QList<PromptAttachment> attachments;
        for (const QString &name : names)
            attachments.append(attachment(name));
        strip.setAttachments(attachments);
        strip.resize(500, strip.measuredHeight(500));
        strip.show();
        for (const AttachmentPillView *pill : strip.pillViews()) {
            QCOMPARE(pill->displayedTitle(), pill->title());
            QVERIFY(pill->width() < AttachmentStripView::maxPillWidth);
        }
    }

    void emptyStripHeightFollowsPlaceholder()
    {
        AttachmentStripView strip;
        QCOMPARE(strip.measuredHeight(500), AttachmentStripView::placeholderHeight);
        strip.setShowsDropPlaceholder(false);
        QCOMPARE(strip.measuredHeight(500), 0);

        // With pills the placeholder setting does not matter.
        strip.setAttachments({attachment(QStringLiteral("a.txt"))});
        QCOMPARE(strip.measuredHeight(500), 22);
        strip.setShowsDropPlaceholder(true);
        QCOMPARE(strip.measuredHeight(500), 22);
        strip.setAttachments({});
        QCOMPARE(strip.measuredHeight(500), 24);
        QVERIFY(strip.pillViews().isEmpty());
    }

    void placeholderTextsFollowBackend_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QString>("idle");
        QTest::addColumn<QString>("highlighted");
        QTest::newRow("codex") << QuickTaskCLIBackend::codex << QStringLiteral("Drop files or folders here")
                               << QStringLiteral("Drop to attach files or folders");
        QTest::newRow("claude") << QuickTaskCLIBackend::claude << QStringLiteral("Drop files or folders here")
                                << QStringLiteral("Drop to attach files or folders");
        QTest::newRow("opencode") << QuickTaskCLIBackend::opencode << QStringLiteral("Drop files here")
                                  << QStringLiteral("Drop to attach files");
    }
    void placeholderTextsFollowBackend()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QString, idle);
        QFETCH(QString, highlighted);

        AttachmentStripView strip;
        // Start from a different backend, so a setter that ignores its argument fails.
        strip.setBackend(backend == QuickTaskCLIBackend::opencode ? QuickTaskCLIBackend::codex
                                                                  : QuickTaskCLIBackend::opencode);
        strip.setBackend(backend);
        QCOMPARE(strip.backend(), backend);
        QCOMPARE(strip.placeholderText(), idle);
        QCOMPARE(strip.highlightedPlaceholderText(), highlighted);
    }

    void fileDragHighlightsAndDropReportsLocalFiles()
    {
        AttachmentStripView strip;
        strip.resize(400, AttachmentStripView::placeholderHeight);
        QSignalSpy highlights(&strip, &AttachmentStripView::dropTargetHighlighted);
        QSignalSpy drops(&strip, &AttachmentStripView::fileUrlsDropped);
        const QImage idle = rendered(strip);

        const QUrl file = QUrl::fromLocalFile(QStringLiteral("/tmp/a.txt"));
        const QUrl folder = QUrl::fromLocalFile(QStringLiteral("/tmp/folder"));
        const QUrl web(QStringLiteral("https://example.invalid/page"));
        std::unique_ptr<QMimeData> data(fileDrag({file, web, folder}));

        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&strip, &enter);
        QVERIFY(enter.isAccepted());
        QVERIFY(strip.isDropTargetHighlighted());
        QCOMPARE(highlights.size(), 1);
        QCOMPARE(highlights.at(0).at(0).toBool(), true);
        QVERIFY(rendered(strip) != idle);

        QDragMoveEvent move(QPoint(20, 10), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&strip, &move);
        QVERIFY(move.isAccepted());
        QCOMPARE(highlights.size(), 1); // no repeat while it stays highlighted

        QDropEvent drop(QPointF(20, 10), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&strip, &drop);
        QVERIFY(drop.isAccepted());
        QVERIFY(!strip.isDropTargetHighlighted());
        QCOMPARE(highlights.size(), 2);
        QCOMPARE(highlights.at(1).at(0).toBool(), false);
        QCOMPARE(drops.size(), 1);
        QCOMPARE(drops.at(0).at(0).value<QList<QUrl>>(), (QList<QUrl>{file, folder}));
        QCOMPARE(rendered(strip), idle);
    }

    void dragLeaveClearsHighlight()
    {
        AttachmentStripView strip;
        strip.resize(400, AttachmentStripView::placeholderHeight);
        QSignalSpy highlights(&strip, &AttachmentStripView::dropTargetHighlighted);
        QSignalSpy drops(&strip, &AttachmentStripView::fileUrlsDropped);
        std::unique_ptr<QMimeData> data(fileDrag({QUrl::fromLocalFile(QStringLiteral("/tmp/a.txt"))}));

        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&strip, &enter);
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(&strip, &leave);
        QVERIFY(!strip.isDropTargetHighlighted());
        QCOMPARE(highlights.size(), 2);
        QCOMPARE(drops.size(), 0);
    }

    void dragsWithoutFilesAreRefused_data()
    {
        QTest::addColumn<bool>("withUrls");
        QTest::newRow("web address") << true;
        QTest::newRow("plain text") << false;
    }
    void dragsWithoutFilesAreRefused()
    {
        QFETCH(bool, withUrls);
        AttachmentStripView strip;
        strip.resize(400, AttachmentStripView::placeholderHeight);
        QSignalSpy highlights(&strip, &AttachmentStripView::dropTargetHighlighted);
        QSignalSpy drops(&strip, &AttachmentStripView::fileUrlsDropped);
        QMimeData data;
        if (withUrls)
            data.setUrls({QUrl(QStringLiteral("https://example.invalid/a.txt"))});
        else
            data.setText(QStringLiteral("/tmp/a.txt"));

        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        enter.accept();
        QCoreApplication::sendEvent(&strip, &enter);
        QVERIFY(!enter.isAccepted());
        QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&strip, &drop);
        QVERIFY(!drop.isAccepted());
        QVERIFY(!strip.isDropTargetHighlighted());
        QCOMPARE(highlights.size(), 0);
        QCOMPARE(drops.size(), 0);
    }

    void removeButtonReportsItsAttachment()
    {
        AttachmentStripView strip;
        const QList<PromptAttachment> attachments{attachment(QStringLiteral("a.txt")),
                                                   attachment(QStringLiteral("b.txt")),
                                                   attachment(QStringLiteral("c.txt"))};
        strip.setAttachments(attachments);
        strip.resize(600, 22);
        QSignalSpy removals(&strip, &AttachmentStripView::removeAttachmentRequested);

        QAbstractButton *button = strip.pillViews()[1]->removeButton();
        QCOMPARE(button->toolTip(), QStringLiteral("Remove attachment"));
        button->click();
        QCOMPARE(removals.size(), 1);
        QCOMPARE(removals.at(0).at(0).value<QUuid>(), attachments[1].id);
    }

    void removalFromInsideTheClickKeepsOtherPills()
    {
        AttachmentStripView strip;
        QList<PromptAttachment> attachments{attachment(QStringLiteral("a.txt")),
                                             attachment(QStringLiteral("b.txt")),
                                             attachment(QStringLiteral("c.txt"))};
        strip.setAttachments(attachments);
        strip.resize(600, 22);
        strip.show();
        const QList<AttachmentPillView *> before = strip.pillViews();

        // The owner usually answers the click by handing back the shorter list at once.
        connect(&strip, &AttachmentStripView::removeAttachmentRequested, &strip, [&](const QUuid &id) {
            attachments.removeIf([&](const PromptAttachment &a) { return a.id == id; });
            strip.setAttachments(attachments);
        });
        QPointer<AttachmentPillView> removed = before[0];
        before[0]->removeButton()->click();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

        QVERIFY(removed.isNull());
        QCOMPARE(strip.pillViews(), (QList<AttachmentPillView *>{before[1], before[2]}));
        QCOMPARE(strip.pillViews()[0]->pos(), QPoint(0, 0));
        QCOMPARE(strip.attachments(), attachments);
    }
};

QTEST_MAIN(AttachmentStripTest)
#include "tst_attachmentstrip.moc"
