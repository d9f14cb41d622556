#pragma once

#include "platform/FileDescriptor.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

#include <memory>

// Reads a non-blocking pipe on the event loop of the thread it lives in and hands out
// the bytes as they come.
class PipeReader final : public QObject {
    Q_OBJECT

public:
    explicit PipeReader(FileDescriptor descriptor, QObject *parent = nullptr);
    ~PipeReader() override;

    // Reads everything the pipe holds now, without waiting for more; one dataRead for it.
    void drain();
    // Stops reading and closes the pipe. Writers left behind get EPIPE.
    void close();

    bool isOpen() const noexcept { return m_descriptor.isValid(); }
    bool isAtEnd() const noexcept { return m_atEnd; }

Q_SIGNALS:
    void dataRead(const QByteArray &bytes);

private:
    void readAvailable(qsizetype limit);

    FileDescriptor m_descriptor;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_atEnd = false;
};
