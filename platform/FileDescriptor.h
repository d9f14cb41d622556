#pragma once

#include <unistd.h>

#include <utility>

// Owns one POSIX file descriptor and closes it once.
class FileDescriptor final {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) noexcept
        : m_descriptor(descriptor)
    {
    }
    ~FileDescriptor() { reset(); }

    FileDescriptor(FileDescriptor &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        if (this != &other)
            reset(std::exchange(other.m_descriptor, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;

    int get() const noexcept { return m_descriptor; }
    bool isValid() const noexcept { return m_descriptor >= 0; }
    int release() noexcept { return std::exchange(m_descriptor, -1); }
    void reset(int descriptor = -1) noexcept
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = descriptor;
    }

private:
    int m_descriptor = -1;
};
