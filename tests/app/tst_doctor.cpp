// The rules of the doctor's own findings; the desktop's are checked on the headless desktop
// (tests/dist/doctor-and-autostart.sh).
#include "app/Doctor.h"
#include "platform/UnixSocket.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

using Severity = DiagnosticFinding::Severity;
Q_DECLARE_METATYPE(Severity)

namespace {

QString makeExecutable(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n") < 0)
        qFatal("cannot write %s", qPrintable(path));
    file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
    return path;
}

} // namespace

class DoctorTest final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;

private Q_SLOTS:
    void editorVariable_data()
    {
        QTest::addColumn<QString>("visual");
        QTest::addColumn<QString>("editor");
        QTest::addColumn<Severity>("severity");
        QTest::addColumn<QString>("detailNames");

        const QString helper = makeExecutable(m_dir.filePath(u"tarvel-edit"_s));
        const QString shim = makeExecutable(m_dir.filePath(u"shim/tarvel-edit"_s));
        const QString other = makeExecutable(m_dir.filePath(u"other/tarvel-edit"_s));

        QTest::newRow("nothing set") << QString() << QString() << Severity::problem << u"Neither"_s;
        QTest::newRow("the shim") << shim << QString() << Severity::ok << shim;
        QTest::newRow("this helper, quoted, with an option")
            << u"\"%1\" --wait"_s.arg(helper) << QString() << Severity::ok << u"this installation"_s;
        // The assistants read EDITOR when VISUAL is unset, and only then.
        QTest::newRow("EDITOR only") << QString() << shim << Severity::ok << u"EDITOR"_s;
        QTest::newRow("VISUAL before EDITOR")
            << u"nano"_s << shim << Severity::problem << u"VISUAL is \u201cnano\u201d"_s;
        QTest::newRow("another installation") << other << QString() << Severity::warning << other;
        QTest::newRow("a helper that is not there") << m_dir.filePath(u"gone/tarvel-edit"_s) << QString()
                                                    << Severity::problem << u"not an executable file"_s;
    }

    void editorVariable()
    {
        QFETCH(QString, visual);
        QFETCH(QString, editor);
        QFETCH(Severity, severity);
        QFETCH(QString, detailNames);

        const DiagnosticFinding finding = Doctor::editorVariableFinding(
            visual, editor, m_dir.filePath(u"tarvel-edit"_s), m_dir.filePath(u"shim/tarvel-edit"_s));
        QCOMPARE(finding.severity, severity);
        QVERIFY2(finding.detail.contains(detailNames), qPrintable(finding.detail));
        QCOMPARE(finding.remedy.isEmpty(), severity == Severity::ok);
    }

    void dataFolder()
    {
        const QString folder = m_dir.filePath(u"Tarvel"_s);
        QCOMPARE(Doctor::dataFolderFinding(folder).severity, Severity::ok); // made at first use

        QVERIFY(QDir().mkdir(folder));
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                          QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                          QFileDevice::ExeOther);
        const DiagnosticFinding shared = Doctor::dataFolderFinding(folder);
        QCOMPARE(shared.severity, Severity::warning);
        QVERIFY(shared.remedy.contains(u"chmod 700"_s));

        QFile::setPermissions(folder,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(Doctor::dataFolderFinding(folder).severity, Severity::ok);

        const QString file = makeExecutable(m_dir.filePath(u"a file"_s));
        QCOMPARE(Doctor::dataFolderFinding(file).severity, Severity::problem);
    }

    // None set, its program found, or not: a warning that says what to do.

    void recognizerCommand()
    {
        const QString program = makeExecutable(m_dir.filePath(u"my recogniser"_s));
        const auto finding = &Doctor::recognizerCommandFinding;
        QCOMPARE(finding(QString()).severity, Severity::ok);
        QCOMPARE(finding(u"'%1' -m x"_s.arg(program)).detail,
                 u"\u201c'%1' -m x\u201d runs %1."_s.arg(program));
        QCOMPARE(finding(u"no-such-recogniser -m x"_s).severity, Severity::warning);
        QCOMPARE(finding(m_dir.filePath(u"gone"_s)).severity, Severity::warning);
        QFile::setPermissions(program, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QVERIFY(finding(u"'%1'"_s.arg(program)).remedy.startsWith(u"Run \u201cchmod +x"_s));
    }

    // Off by choice is fine; no dictionary, or none for the language, says which package to install.

    void spelling()
    {
        const auto finding = &Doctor::spellingFinding;
        const SpellDictionary english{u"en_US"_s, u"/d/en_US.aff"_s, u"/d/en_US.dic"_s};
        const QLocale german(u"de_DE"_s);
        QCOMPARE(finding(u"off"_s, {}, german).severity, Severity::ok);
        QCOMPARE(finding(QString(), {}, german).severity, Severity::warning);
        QVERIFY(finding(QString(), {}, german).remedy.contains(u"sudo apt install hunspell-de-de"_s));
        QVERIFY(finding(QString(), {}, QLocale::c()).remedy.contains(u"hunspell-en-us"_s));
        QCOMPARE(finding(QString(), {english}, german).severity, Severity::warning);
        QCOMPARE(finding(u"en_US"_s, {english}, german).severity, Severity::ok); // chosen by hand
        const DiagnosticFinding gone = finding(u"fr_FR"_s, {english}, QLocale::c());
        QCOMPARE(gone.severity, Severity::warning);
        QVERIFY(gone.detail.contains(u"fr_FR"_s) && gone.detail.contains(u"/d/en_US.dic"_s));
    }

    // None while Tarvel is not running is no news; a socket nobody answers is, and so is one that answers.

    void remoteSocket()
    {
        const QString folder = m_dir.filePath(u"runtime"_s);
        QVERIFY(QDir().mkdir(folder));
        QFile::setPermissions(folder,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        const QString path = folder + u"/remote.sock"_s;
        QCOMPARE(Doctor::remoteSocketFinding(path).severity, Severity::ok);
        const UnixSocket::Result listening = UnixSocket::listenAt(QFile::encodeName(path).toStdString());
        QVERIFY(listening.descriptor >= 0);
        QVERIFY(Doctor::remoteSocketFinding(path).detail.contains(u"remote setup"_s));
        ::close(listening.descriptor); // the file stays behind, as after a crash
        const DiagnosticFinding stale = Doctor::remoteSocketFinding(path);
        QCOMPARE(stale.severity, Severity::warning);
        QVERIFY(stale.detail.startsWith(u"Nothing listens"_s));
    }
};

QTEST_GUILESS_MAIN(DoctorTest)
#include "tst_doctor.moc"
