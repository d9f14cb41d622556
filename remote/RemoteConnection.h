#pragma once

#include "remote/RemoteProtocol.h"

#include <QObject>

#include <chrono>
#include <functional>
#include <string>

class QSocketNotifier;
class QTimer;

// One accepted connection of the remote editing socket: cuts what arrives into frames, sends
// frames without blocking, and says when the other side goes or a frame stops arriving. The
// server decides what the frames mean.
class RemoteConnection final : public QObject {
    Q_OBJECT

public:
    // Takes the descriptor (non-blocking) and closes it at the end.
    RemoteConnection(int descriptor, std::chrono::milliseconds stallTimeout, QObject *parent = nullptr);
    ~RemoteConnection() override;

    // While a frame is expected, silence counts as a stall even before its first byte; otherwise
    // only a frame begun and not finished does.
    void setExpectingFrame(bool expecting);
    void send(const std::string &frame);
    // Sends the last frame and closes; nothing more is read or reported, and the connection
    // deletes itself once the frame is out (or cannot go).
    void sendAndClose(const std::string &frame);
    void close();
    bool isOpen() const { return m_descriptor >= 0; }
    std::size_t bufferedSize() const { return m_reader.bufferedSize(); }

    std::function<void(const std::string &payload)> onFrame;
    // A header announced more than a frame may carry.
    std::function<void(const RemoteProtocol::ProtocolError &error)> onFrameError;
    std::function<void()> onStalled;
    // The other side closed the connection or it failed while it was open.
    std::function<void()> onPeerClosed;

private:
    void readAvailable();
    void writePending();
    void updateStallTimer();

    int m_descriptor = -1;
    QSocketNotifier *m_readable = nullptr;
    QSocketNotifier *m_writable = nullptr;
    QTimer *m_stall = nullptr;
    RemoteProtocol::FrameReader m_reader;
    std::string m_outgoing;
    std::size_t m_written = 0;
    bool m_expectingFrame = true;
    bool m_closing = false;
};
