// Pasted images imported as private PNG files, and when the attachment store deletes them.
#include "composer/PastedImageImport.h"
#include "core/AttachmentStore.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "support/TestEnvironment.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMimeData>
#include <QRegularExpression>
#include <QtTest>

#include <memory>

namespace {

QImage sampleImage(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor(30, 120, 200));
    image.setPixelColor(0, 0, QColor(250, 10, 20));
    return image;
}

QByteArray pngBytes(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

const QRegularExpression &namePattern()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^Pasted Image \d{4}-\d{2}-\d{2} \d{2}\.\d{2}\.\d{2} [0-9A-F]{6}\.png$)"));
    return pattern;
}

} // namespace

class AttachmentImportTest final : public QObject {
    Q_OBJECT

    std::unique_ptr<TestEnvironment> m_environment;

private Q_SLOTS:
    void init() { m_environment = std::make_unique<TestEnvironment>(); }
    void cleanup() { m_environment.reset(); }

    void importWritesAPrivatePngWithAUniqueName()
    {
        const QString name = AttachmentStore::uniqueFilename(QDateTime(QDate(2026, 3, 1), QTime(9, 15, 42)));
        QVERIFY2(name.startsWith(u"Pasted Image 2026-03-01 09.15.42 ") &&
                     namePattern().match(name).hasMatch(),
                 qPrintable(name));

        const PromptAttachment imported = PastedImageImport::importImage(sampleImage(37, 21));
        const PromptAttachment second = PastedImageImport::importImage(sampleImage(8, 8));
        QVERIFY(imported.isManagedCopy && imported.isImage());
        QVERIFY(imported.path != second.path); // the same second, another file
        const QFileInfo info(imported.path);
        QCOMPARE(info.absolutePath(), QDir(AttachmentStore::folder()).absolutePath());
        QCOMPARE(QFileInfo(AttachmentStore::folder()).fileName(), QStringLiteral("ImportedAttachments"));
        QVERIFY(imported.path.startsWith(m_environment->root()));
        QVERIFY2(namePattern().match(info.fileName()).hasMatch(), qPrintable(info.fileName()));

        QFile file(imported.path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.read(8).startsWith("\x89PNG\r\n\x1a\n"));
        const QImage reread(imported.path);
        QCOMPARE(reread.size(), QSize(37, 21));
        QCOMPARE(reread.pixelColor(0, 0), QColor(250, 10, 20));
        QCOMPARE(info.permissions() & ~(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                        QFileDevice::ReadUser | QFileDevice::WriteUser),
                 QFileDevice::Permissions());
    }

    void failuresThrowAndWriteNothing()
    {
        QVERIFY_THROWS_EXCEPTION(TarvelError, PastedImageImport::importImage(QImage()));
        QMimeData broken;
        broken.setData(QStringLiteral("image/png"), QByteArray("not a png at all"));
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

    void clipboardDataIsImported_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("image object") << QStringLiteral("object");
        QTest::newRow("png bytes") << QStringLiteral("png");
        QTest::newRow("bmp bytes") << QStringLiteral("bmp");
    }
    void clipboardDataIsImported()
    {
        QFETCH(QString, kind);
        const QImage image = sampleImage(12, 9);
        QMimeData data;
        data.setText(QStringLiteral("ignored caption"));
        if (kind == u"object") {
            data.setImageData(image);
        } else if (kind == u"png") {
            data.setData(QStringLiteral("image/png"), pngBytes(image));
        } else {
            QByteArray bytes;
            QBuffer buffer(&bytes);
            buffer.open(QIODevice::WriteOnly);
            QVERIFY(image.save(&buffer, "BMP"));
            data.setData(QStringLiteral("image/bmp"), bytes);
        }

        const std::optional<PromptAttachment> imported = PastedImageImport::importImage(&data);
        QVERIFY(imported.has_value());
        QVERIFY(imported->isManagedCopy);
        const QImage reread(imported->path, "PNG");
        QCOMPARE(reread.size(), QSize(12, 9));
        QCOMPARE(reread.pixelColor(0, 0), QColor(250, 10, 20));
    }

    void clipboardWithoutImage()
    {
        QMimeData text;
        text.setText(QStringLiteral("just words"));
        QVERIFY(!PastedImageImport::importImage(&text).has_value());
        QVERIFY(!PastedImageImport::importImage(static_cast<const QMimeData *>(nullptr)));
        QVERIFY(!QFileInfo::exists(AttachmentStore::folder()));
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
        const QString userPath = m_environment->path(QStringLiteral("notes.png"));
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

QTEST_MAIN(AttachmentImportTest)
#include "tst_attachmentimport.moc"
