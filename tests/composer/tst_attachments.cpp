// Attachments: the strip's wrapping, pill widths, placeholder texts, drops and removal
// (offscreen); pasted images imported as private PNG files, and when the store deletes them.
#include "composer/AttachmentPillView.h"
#include "composer/AttachmentStripView.h"
#include "composer/PastedImageImport.h"
#include "core/AttachmentStore.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "support/TestEnvironment.h"

#include <QAbstractButton>
#include <QBuffer>
#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDropEvent>
#include <QImage>
#include <QMimeData>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

PromptAttachment attachment(const QString &name)
{
    return PromptAttachment::make(u"/tmp/tarvel-strip-test/"_s + name);
}

QString longName(QChar letter)
{
    return QString(60, letter) + u" report final.txt"_s;
}

QImage rendered(QWidget &widget)
{
    QImage image(widget.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    widget.render(&image);
    return image;
}

void send(QWidget &widget, QEvent &&event)
{
    QCoreApplication::sendEvent(&widget, &event);
}

// Whether the widget takes a drag event carrying the data: sent not yet accepted, or accepted
// beforehand where a refusal has to be seen.
template<typename Event> bool takes(QWidget &widget, QMimeData *data, bool acceptedBefore = false)
{
    Event event(QPoint(10, 10), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    event.setAccepted(acceptedBefore);
    QCoreApplication::sendEvent(&widget, &event);
    return event.isAccepted();
}

QImage sampleImage(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor(30, 120, 200));
    image.setPixelColor(0, 0, QColor(250, 10, 20));
    return image;
}

QByteArray encoded(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

const QRegularExpression &namePattern()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^Pasted Image \d{4}-\d{2}-\d{2} \d{2}\.\d{2}\.\d{2} [0-9A-F]{6}\.png$)"));
    return pattern;
}

} // namespace

class AttachmentsTest final : public QObject {
    Q_OBJECT

    std::unique_ptr<TestEnvironment> m_environment;

private Q_SLOTS:
    void init() { m_environment = std::make_unique<TestEnvironment>(); }
    void cleanup() { m_environment.reset(); }

    void pillsAreCappedElidedAndWrapIntoRows()
    {
        // Rows of 22 with gaps of 6; a pill wider than the strip is cut to it.
        QCOMPARE(AttachmentStripView::wrappedPillFrames({100, 100, 100, 500}, 210),
                 (QList<QRect>{QRect(0, 0, 100, 22), QRect(106, 0, 100, 22), QRect(0, 28, 100, 22),
                               QRect(0, 56, 210, 22)}));

        // Three pills at the 220 cap: two fit side by side only from 446 (220 + 6 + 220).
        AttachmentStripView strip;
        strip.setAttachments(
            {attachment(longName(u'a')), attachment(longName(u'b')), attachment(longName(u'c'))});
        QCOMPARE(strip.measuredHeight(445), 3 * 22 + 2 * 6);
        QCOMPARE(strip.heightForWidth(446), 2 * 22 + 6);
        strip.resize(446, 2 * 22 + 6);
        strip.show(); // a hidden widget gets its resize event only when shown
        const QList<AttachmentPillView *> pills = strip.pillViews();
        QCOMPARE(pills[0]->geometry(), QRect(0, 0, AttachmentStripView::maxPillWidth, 22));
        QCOMPARE(pills[1]->pos(), QPoint(220 + 6, 0));
        QCOMPARE(pills[2]->pos(), QPoint(0, 28));

        // A pill is capped and its title elided in the middle.
        const PromptAttachment wide = attachment(longName(u'x'));
        AttachmentPillView widePill(wide);
        QCOMPARE(widePill.preferredWidth(AttachmentStripView::maxPillWidth),
                 AttachmentStripView::maxPillWidth);
        QCOMPARE(widePill.preferredWidth(90), 90);
        widePill.resize(AttachmentStripView::maxPillWidth, AttachmentStripView::pillHeight);
        widePill.show();
        const QString shown = widePill.displayedTitle();
        QVERIFY2(shown.contains(QChar(0x2026)) && shown.startsWith(u"xxx") && shown.endsWith(u"final.txt"),
                 qPrintable(shown));
        QCOMPARE(widePill.toolTip(), wide.path);

        // Names that fit are shown whole, in pills that share a row; a longer name never
        // gets a narrower pill.
        AttachmentStripView fitting;
        fitting.setAttachments({attachment(u"a.txt"_s), attachment(u"WWW mmm.txt"_s)});
        fitting.resize(500, fitting.measuredHeight(500));
        fitting.show();
        QCOMPARE(fitting.measuredHeight(500), 22);
        const QList<AttachmentPillView *> fit = fitting.pillViews();
        for (const AttachmentPillView *pill : fit)
            QCOMPARE(pill->displayedTitle(), pill->title());
        QVERIFY(fit[0]->width() > fit[0]->fontMetrics().horizontalAdvance(u"a.txt"_s));
        QVERIFY(fit[1]->width() > fit[0]->width());
        QCOMPARE(fit[1]->pos(), QPoint(fit[0]->width() + 6, 0));
    }

    void placeholderFollowsBackendAndAttachments()
    {
        AttachmentStripView strip;
        QCOMPARE(strip.measuredHeight(500), AttachmentStripView::placeholderHeight);
        strip.setShowsDropPlaceholder(false);
        QCOMPARE(strip.measuredHeight(500), 0);
        strip.setAttachments({attachment(u"a.txt"_s)});
        QCOMPARE(strip.measuredHeight(500), 22); // pills take its place either way
        strip.setShowsDropPlaceholder(true);
        strip.setAttachments({});
        QCOMPARE(strip.measuredHeight(500), AttachmentStripView::placeholderHeight);

        QVERIFY(strip.placeholderText().contains(u"folders"_s));
        strip.setBackend(QuickTaskCLIBackend::opencode); // takes no folders
        QVERIFY(!strip.placeholderText().contains(u"folders"_s));
        QVERIFY(!strip.highlightedPlaceholderText().contains(u"folders"_s));
    }

    void fileDragHighlightsAndDropReportsLocalFiles()
    {
        AttachmentStripView strip;
        strip.resize(400, AttachmentStripView::placeholderHeight);
        QSignalSpy highlights(&strip, &AttachmentStripView::dropTargetHighlighted);
        QSignalSpy drops(&strip, &AttachmentStripView::fileUrlsDropped);
        const QImage idle = rendered(strip);

        const QUrl file = QUrl::fromLocalFile(u"/tmp/a.txt"_s);
        const QUrl folder = QUrl::fromLocalFile(u"/tmp/folder"_s);
        QMimeData data;
        data.setUrls({file, QUrl(u"https://example.invalid/page"_s), folder});

        QVERIFY(takes<QDragEnterEvent>(strip, &data));
        QVERIFY(rendered(strip) != idle);
        takes<QDragMoveEvent>(strip, &data);
        QCOMPARE(highlights.size(), 1); // no repeat while it stays highlighted

        QVERIFY(takes<QDropEvent>(strip, &data));
        QCOMPARE(highlights.size(), 2);
        QCOMPARE(highlights.at(1).at(0).toBool(), false);
        QCOMPARE(drops.size(), 1);
        QCOMPARE(drops.at(0).at(0).value<QList<QUrl>>(), (QList<QUrl>{file, folder}));
        QCOMPARE(rendered(strip), idle);

        // A drag that leaves takes the highlight with it.
        takes<QDragEnterEvent>(strip, &data);
        send(strip, QDragLeaveEvent());
        QVERIFY(!strip.isDropTargetHighlighted());
        QCOMPARE(highlights.size(), 4);

        // Drags without a local file are refused.
        QMimeData web;
        web.setUrls({QUrl(u"https://example.invalid/a.txt"_s)});
        QMimeData text;
        text.setText(u"/tmp/a.txt"_s);
        for (QMimeData *refused : {&web, &text}) {
            QVERIFY(!takes<QDragEnterEvent>(strip, refused, true));
            QVERIFY(!takes<QDropEvent>(strip, refused));
        }
        QCOMPARE(highlights.size(), 4);
        QCOMPARE(drops.size(), 1);
    }

    // The owner answers a pill's remove button by handing back the shorter list at once,
    // from inside the click.
    void removalFromInsideTheClickKeepsOtherPills()
    {
        AttachmentStripView strip;
        QList<PromptAttachment> attachments{attachment(u"a.txt"_s), attachment(u"b.txt"_s),
                                            attachment(u"c.txt"_s)};
        strip.setAttachments(attachments);
        strip.resize(600, 22);
        strip.show();
        const QList<AttachmentPillView *> before = strip.pillViews();
        QList<QUuid> removals;
        connect(&strip, &AttachmentStripView::removeAttachmentRequested, &strip, [&](const QUuid &id) {
            removals.append(id);
            attachments.removeIf([&](const PromptAttachment &a) { return a.id == id; });
            strip.setAttachments(attachments);
        });
        const QPointer<AttachmentPillView> removed = before[1];
        before[1]->removeButton()->click();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

        QCOMPARE(removals.size(), 1);
        QVERIFY(removed.isNull());
        QCOMPARE(strip.pillViews(), (QList<AttachmentPillView *>{before[0], before[2]}));
        QCOMPARE(strip.pillViews()[1]->pos(), QPoint(before[0]->width() + 6, 0));
        QCOMPARE(strip.attachments(), attachments);
    }

    // An image object, PNG bytes and bytes of another format all come in as a private PNG file in
    // the imported-attachments folder, each under a name of its own even within one second.
    void clipboardImagesBecomePrivatePngFiles()
    {
        const QString name = AttachmentStore::uniqueFilename(QDateTime(QDate(2026, 3, 1), QTime(9, 15, 42)));
        QVERIFY2(name.startsWith(u"Pasted Image 2026-03-01 09.15.42 ") &&
                     namePattern().match(name).hasMatch(),
                 qPrintable(name));
        QCOMPARE(QFileInfo(AttachmentStore::folder()).fileName(), u"ImportedAttachments"_s);
        const QImage image = sampleImage(37, 21);
        QMimeData object, png, bmp;
        object.setImageData(image);
        png.setData(u"image/png"_s, encoded(image, "PNG"));
        bmp.setData(u"image/bmp"_s, encoded(image, "BMP"));
        QSet<QString> paths;
        for (QMimeData *data : {&object, &png, &bmp}) {
            data->setText(u"ignored caption"_s);
            const std::optional<PromptAttachment> imported = PastedImageImport::importImage(data);
            QVERIFY(imported && imported->isManagedCopy && imported->isImage());
            paths.insert(imported->path);
            const QFileInfo info(imported->path);
            QCOMPARE(info.absolutePath(), QDir(AttachmentStore::folder()).absolutePath());
            QVERIFY(imported->path.startsWith(m_environment->root()));
            QVERIFY2(namePattern().match(info.fileName()).hasMatch(), qPrintable(info.fileName()));
            QCOMPARE(info.permissions() & ~(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                            QFileDevice::ReadUser | QFileDevice::WriteUser),
                     QFileDevice::Permissions());
            QFile file(imported->path);
            QVERIFY(file.open(QIODevice::ReadOnly) && file.read(8).startsWith("\x89PNG\r\n\x1a\n"));
            const QImage reread(imported->path);
            QCOMPARE(reread.size(), QSize(37, 21));
            QCOMPARE(reread.pixelColor(0, 0), QColor(250, 10, 20));
        }
        QCOMPARE(paths.size(), 3);
    }

    // Clipboard data without an image is no image; one that cannot be read is an error. Neither
    // writes a file.
    void failuresThrowAndWriteNothing()
    {
        QMimeData text;
        text.setText(u"just words"_s);
        QVERIFY(!PastedImageImport::importImage(&text).has_value());
        QVERIFY(!PastedImageImport::importImage(static_cast<const QMimeData *>(nullptr)));
        QVERIFY(!QFileInfo::exists(AttachmentStore::folder()));
        QVERIFY_THROWS_EXCEPTION(TarvelError, PastedImageImport::importImage(QImage()));
        QMimeData broken;
        broken.setData(u"image/png"_s, QByteArray("not a png at all"));
        QVERIFY_THROWS_EXCEPTION(TarvelError, PastedImageImport::importImage(&broken));
        QVERIFY(!QFileInfo::exists(AttachmentStore::folder()) ||
                QDir(AttachmentStore::folder()).isEmpty(QDir::Files));

        // A file where the folder should be: neither the folder nor the PNG can be made.
        QDir().mkpath(FileStore::baseDirectory());
        QFile blocker(AttachmentStore::folder());
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY_THROWS_EXCEPTION(TarvelError, PastedImageImport::importImage(sampleImage(3, 3)));
    }

    // A copy goes when its last holder lets go; a file the user attached, one outside the
    // folder or one not marked as a copy is never deleted. (A retried draft holding a deleted
    // session's image: tst_composercoordinator.)
    void managedCopiesGoWithTheirLastHolder()
    {
        AttachmentStore store;
        const PromptAttachment pasted = PastedImageImport::importImage(sampleImage(5, 5));
        PromptAttachment unmarked = PastedImageImport::importImage(sampleImage(6, 6));
        unmarked.isManagedCopy = false;
        const QString userPath = m_environment->path(u"notes.png"_s);
        QVERIFY(sampleImage(2, 2).save(userPath));
        const QUuid session = QUuid::createUuid();
        const QUuid composer = QUuid::createUuid();

        store.hold(session, {pasted, unmarked, PromptAttachment::make(userPath, true)});
        store.hold(composer, {pasted});
        store.release(session);
        QVERIFY(QFileInfo::exists(pasted.path) && store.isHeld(pasted.path));
        QVERIFY(QFileInfo::exists(userPath) && QFileInfo::exists(unmarked.path));
        store.hold(composer, {}); // taken out of the strip
        QVERIFY(!QFileInfo::exists(pasted.path));
    }
};

QTEST_MAIN(AttachmentsTest)
#include "tst_attachments.moc"
