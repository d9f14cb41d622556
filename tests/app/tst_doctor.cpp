// The rules of the doctor's own findings; the desktop's are checked on the headless desktop
// (tests/dist/doctor-and-autostart.sh).
#include "app/Doctor.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using Severity = DiagnosticFinding::Severity;
Q_DECLARE_METATYPE(Severity)

class DoctorTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void editorVariable_data();
    void editorVariable();
    void dataFolder();
    void recognizerCommand();
    void spelling();

private:
    QTemporaryDir m_dir;
};

namespace {

QString makeExecutable(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n") < 0)
        qFatal("cannot write %s", qPrintable(path));
    file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
    return path;
}

} // namespace

void DoctorTest::editorVariable_data()
{
    QTest::addColumn<QString>("visual");
    QTest::addColumn<QString>("editor");
    QTest::addColumn<Severity>("severity");
    QTest::addColumn<QString>("detailNames");

    const QString helper = makeExecutable(m_dir.filePath(QStringLiteral("tarvel-edit")));
    QDir().mkpath(m_dir.filePath(QStringLiteral("shim")));
    const QString shim = makeExecutable(m_dir.filePath(QStringLiteral("shim/tarvel-edit")));
    QDir().mkpath(m_dir.filePath(QStringLiteral("other")));
    const QString other = makeExecutable(m_dir.filePath(QStringLiteral("other/tarvel-edit")));

    QTest::newRow("nothing set") << QString() << QString() << Severity::problem << QStringLiteral("Neither");
    QTest::newRow("the shim") << shim << QString() << Severity::ok << shim;
    QTest::newRow("this helper, quoted, with an option")
        << QStringLiteral("\"%1\" --wait").arg(helper) << QString() << Severity::ok
        << QStringLiteral("this installation");
    // The assistants read EDITOR when VISUAL is unset, and only then.
    QTest::newRow("EDITOR only") << QString() << shim << Severity::ok << QStringLiteral("EDITOR");
    QTest::newRow("VISUAL before EDITOR") << QStringLiteral("nano") << shim << Severity::problem
                                          << QStringLiteral("VISUAL is \u201cnano\u201d");
    QTest::newRow("another installation") << other << QString() << Severity::warning << other;
    QTest::newRow("a helper that is not there")
        << m_dir.filePath(QStringLiteral("gone/tarvel-edit")) << QString() << Severity::problem
        << QStringLiteral("not an executable file");
}

void DoctorTest::editorVariable()
{
    QFETCH(QString, visual);
    QFETCH(QString, editor);
    QFETCH(Severity, severity);
    QFETCH(QString, detailNames);

    const DiagnosticFinding finding =
        Doctor::editorVariableFinding(visual, editor, m_dir.filePath(QStringLiteral("tarvel-edit")),
                                      m_dir.filePath(QStringLiteral("shim/tarvel-edit")));
    QCOMPARE(finding.severity, severity);
    QVERIFY2(finding.detail.contains(detailNames), qPrintable(finding.detail));
    QCOMPARE(finding.remedy.isEmpty(), severity == Severity::ok);
}

void DoctorTest::dataFolder()
{
    const QString folder = m_dir.filePath(QStringLiteral("Tarvel"));
    QCOMPARE(Doctor::dataFolderFinding(folder).severity, Severity::ok); // made at first use

    QVERIFY(QDir().mkdir(folder));
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                      QFileDevice::ReadOther | QFileDevice::ExeOther);
    const DiagnosticFinding shared = Doctor::dataFolderFinding(folder);
    QCOMPARE(shared.severity, Severity::warning);
    QVERIFY(shared.remedy.contains(QStringLiteral("chmod 700")));

    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QCOMPARE(Doctor::dataFolderFinding(folder).severity, Severity::ok);

    const QString file = makeExecutable(m_dir.filePath(QStringLiteral("a file")));
    QCOMPARE(Doctor::dataFolderFinding(file).severity, Severity::problem);
}

// None set, its program found, or not: a warning that says what to do.
void DoctorTest::recognizerCommand()
{
    const QString program = makeExecutable(m_dir.filePath(QStringLiteral("my recogniser")));
    const auto finding = &Doctor::recognizerCommandFinding;
    QCOMPARE(finding(QString()).severity, Severity::ok);
    QCOMPARE(finding(QStringLiteral("'%1' -m x").arg(program)).detail,
             QStringLiteral("\u201c'%1' -m x\u201d runs %1.").arg(program));
    QCOMPARE(finding(QStringLiteral("no-such-recogniser -m x")).severity, Severity::warning);
    QCOMPARE(finding(m_dir.filePath(QStringLiteral("gone"))).severity, Severity::warning);
    QFile::setPermissions(program, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QVERIFY(
        finding(QStringLiteral("'%1'").arg(program)).remedy.startsWith(QStringLiteral("Run \u201cchmod +x")));
}

// Off by choice is fine; no dictionary, or none for the language, says which package to install.
void DoctorTest::spelling()
{
    const auto finding = &Doctor::spellingFinding;
    const SpellDictionary english{QStringLiteral("en_US"), QStringLiteral("/d/en_US.aff"),
                                  QStringLiteral("/d/en_US.dic")};
    const QLocale german(QStringLiteral("de_DE"));
    QCOMPARE(finding(QStringLiteral("off"), {}, german).severity, Severity::ok);
    QCOMPARE(finding(QString(), {}, german).severity, Severity::warning);
    QVERIFY(
        finding(QString(), {}, german).remedy.contains(QStringLiteral("sudo apt install hunspell-de-de")));
    QVERIFY(finding(QString(), {}, QLocale::c()).remedy.contains(QStringLiteral("hunspell-en-us")));
    QCOMPARE(finding(QString(), {english}, german).severity, Severity::warning);
    QCOMPARE(finding(QStringLiteral("en_US"), {english}, german).severity, Severity::ok); // chosen by hand
    const DiagnosticFinding gone = finding(QStringLiteral("fr_FR"), {english}, QLocale::c());
    QCOMPARE(gone.severity, Severity::warning);
    QVERIFY(gone.detail.contains(QStringLiteral("fr_FR")) &&
            gone.detail.contains(QStringLiteral("/d/en_US.dic")));
}

QTEST_GUILESS_MAIN(DoctorTest)
#include "tst_doctor.moc"
