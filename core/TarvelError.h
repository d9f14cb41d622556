#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The one error type of the project. description() is always a complete sentence
// that can be shown to the user as it stands.
class TarvelError : public std::exception {
public:
    explicit TarvelError(QString description);

    const QString &description() const noexcept { return m_description; }
    const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_description;
    QByteArray m_utf8;
};

// A failure of the operating system: "Could not <operation>: <system error text>".
class SystemError final : public TarvelError {
public:
    SystemError(const QString &operation, int errorNumber);
    SystemError(const QString &operation, const QString &systemText);

    int errorNumber() const noexcept { return m_errorNumber; }

private:
    int m_errorNumber = 0;
};

// Bytes that are not a valid record: malformed JSON, a missing key, a bad value.
class DecodingError final : public TarvelError {
public:
    using TarvelError::TarvelError;
};

// A folder of the request exchange that others could read from or write into: a link,
// another user's folder, or one that group or others may change. Never made private
// behind the user's back; the sentence says what to run.
class UnsafeFolderError final : public TarvelError {
public:
    using TarvelError::TarvelError;
};

// A request file that is not read: a link, not a plain file, or too large.
class RefusedRequestFileError final : public TarvelError {
public:
    using TarvelError::TarvelError;
};
