// Pasted images imported as private PNG files, and the cleanup of managed copies.
#include "composer/ScratchAttachmentImportStore.h"
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

    void fileNameCarriesLocalTimeAndRandomSuffix()
    {
        const QDateTime at(QDate(2026, 3, 1), QTime(9, 15, 42));
        const QString name = ScratchAttachmentImportStore::uniqueFilename(at);
        QVERIFY2(namePattern().match(name).hasMatch(), qPrintable(name));
        QVERIFY2(name.startsWith(u"Pasted Image 2026-03-01 09.15.42 "), qPrintable(name));
        QVERIFY(ScratchAttachmentImportStore::uniqueFilename(at) != name);
    }

    void importWritesAPrivatePngInTheImportFolder()
    {
        const QImage image = sampleImage(37, 21);
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        const PromptAttachment imported = ScratchAttachmentImportStore::importImage(image);
        const QDateTime after = QDateTime::currentDateTime().addSecs(1);

        QVERIFY(imported.isManagedCopy);
        QVERIFY(!imported.id.isNull());
        QCOMPARE(imported.path, PromptAttachment::standardizedPath(imported.path));
        const QFileInfo info(imported.path);
        QCOMPARE(info.absolutePath(), QDir(ScratchAttachmentImportStore::importFolder()).absolutePath());
        QCOMPARE(QFileInfo(ScratchAttachmentImportStore::importFolder()).fileName(),
                 QStringLiteral("ImportedAttachments"));
        QVERIFY(imported.path.startsWith(m_environment->root()));

        const QString name = info.fileName();
        QVERIFY2(namePattern().match(name).hasMatch(), qPrintable(name));
        const QDateTime stamp =
            QDateTime::fromString(name.mid(13, 19), QStringLiteral("yyyy-MM-dd HH.mm.ss"));
        QVERIFY2(stamp >= before.addMSecs(-before.time().msec()) && stamp <= after, qPrintable(name));

        QFile file(imported.path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.read(8).startsWith("\x89PNG\r\n\x1a\n"));
        const QImage reread(imported.path);
        QCOMPARE(reread.size(), QSize(37, 21));
        QCOMPARE(reread.pixelColor(0, 0), QColor(250, 10, 20));
        QCOMPARE(reread.pixelColor(36, 20), QColor(30, 120, 200));
        QVERIFY(imported.isImage());

        const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                                QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                                QFileDevice::WriteOther | QFileDevice::ExeOther;
        QCOMPARE(info.permissions() & others, QFileDevice::Permissions());
        QVERIFY(info.permissions().testFlags(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QVERIFY(!info.permissions().testFlag(QFileDevice::ExeOwner));
    }

    void importsInTheSameSecondGetDifferentFiles()
    {
        const PromptAttachment first = ScratchAttachmentImportStore::importImage(sampleImage(4, 4));
        const PromptAttachment second = ScratchAttachmentImportStore::importImage(sampleImage(8, 8));
        QVERIFY(first.path != second.path);
        QVERIFY(first.id != second.id);
        QCOMPARE(QImage(first.path).size(), QSize(4, 4));
        QCOMPARE(QImage(second.path).size(), QSize(8, 8));
    }

    void nullImageThrowsAndWritesNothing()
    {
        try {
            ScratchAttachmentImportStore::importImage(QImage());
            QFAIL("a null image was imported");
        } catch (const TarvelError &error) {
            QVERIFY(error.description().endsWith(u'.'));
        }
        QVERIFY(QDir(ScratchAttachmentImportStore::importFolder()).isEmpty(QDir::Files) ||
                !QFileInfo::exists(ScratchAttachmentImportStore::importFolder()));
    }

    void unwritableFolderThrows()
    {
        // A file where the folder should be: neither the folder nor the PNG can be made.
        QDir().mkpath(FileStore::baseDirectory());
        QFile blocker(ScratchAttachmentImportStore::importFolder());
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY_THROWS_EXCEPTION(TarvelError, ScratchAttachmentImportStore::importImage(sampleImage(3, 3)));
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

        const std::optional<PromptAttachment> imported = ScratchAttachmentImportStore::importImage(&data);
        QVERIFY(imported.has_value());
        QVERIFY(imported->isManagedCopy);
        QVERIFY(namePattern().match(QFileInfo(imported->path).fileName()).hasMatch());
        const QImage reread(imported->path, "PNG");
        QCOMPARE(reread.size(), QSize(12, 9));
        QCOMPARE(reread.pixelColor(0, 0), QColor(250, 10, 20));
    }

    void clipboardWithoutImage()
    {
        QMimeData text;
        text.setText(QStringLiteral("just words"));
        QVERIFY(!ScratchAttachmentImportStore::importImage(&text).has_value());
        QVERIFY(!ScratchAttachmentImportStore::importImage(static_cast<const QMimeData *>(nullptr)));
        QVERIFY(!QFileInfo::exists(ScratchAttachmentImportStore::importFolder()));

        QMimeData broken;
        broken.setData(QStringLiteral("image/png"), QByteArray("not a png at all"));
        QVERIFY_THROWS_EXCEPTION(TarvelError, ScratchAttachmentImportStore::importImage(&broken));
    }

    void cleanupDeletesOnlyManagedCopies()
    {
        const PromptAttachment pasted = ScratchAttachmentImportStore::importImage(sampleImage(5, 5));
        const QString userPath = m_environment->path(QStringLiteral("notes.txt"));
        QFile userFile(userPath);
        QVERIFY(userFile.open(QIODevice::WriteOnly));
        userFile.write("keep me");
        userFile.close();
        const PromptAttachment userAttachment = PromptAttachment::make(userPath);
        // Even a file inside the import folder stays when it is not marked as a managed copy.
        const PromptAttachment unmarked = ScratchAttachmentImportStore::importImage(sampleImage(6, 6));
        PromptAttachment unmarkedCopy = unmarked;
        unmarkedCopy.isManagedCopy = false;
        const PromptAttachment missing =
            PromptAttachment::make(m_environment->path(QStringLiteral("gone.png")), true);

        ScratchAttachmentImportStore::cleanup({userAttachment, pasted, unmarkedCopy, missing});

        QVERIFY(!QFileInfo::exists(pasted.path));
        QVERIFY(QFileInfo::exists(userPath));
        QVERIFY(QFileInfo::exists(unmarked.path));
        QVERIFY(QFileInfo::exists(ScratchAttachmentImportStore::importFolder()));
    }
};

QTEST_MAIN(AttachmentImportTest)
#include "tst_attachmentimport.moc"
