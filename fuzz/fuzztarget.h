#pragma once

#include <database/services/exception.h>

#include <QtCore/qbuffer.h>
#include <QtCore/qbytearray.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qlogging.h>
#include <QtCore/qstring.h>

#include <sanitizer/common_interface_defs.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *, size_t),
                                                         void (*)(const volatile void *));

/// What the fuzz targets share: how input is taken apart, what counts as a finding, and how much
/// memory an input may ask for. A finding ends the process, which is how libFuzzer hears of it.

inline void require(bool holds, const char *rule)
{
    if (holds)
        return;
    std::fprintf(stderr, "RULE BROKEN: %s\n", rule);
    std::abort();
}

/// The first bytes of an input choose what is done with the others.
class Input
{
public:
    Input(const uint8_t *data, size_t size)
        : m_data(reinterpret_cast<const char *>(data))
        , m_size(int(size))
    {
    }

    uint8_t choice() { return m_at < m_size ? uint8_t(m_data[m_at++]) : uint8_t(0); }
    /// What is left; a copy, so that reading past its end is seen.
    QByteArray rest() const { return QByteArray(m_data + m_at, m_size - m_at); }

private:
    const char *m_data; // borrowed
    int m_size;
    int m_at = 0;
};

/// While it lives, no single allocation may exceed 64 times the input, or 16 MiB for small ones.
class AllocationLimit
{
public:
    explicit AllocationLimit(int inputSize)
    {
        static const int installed = __sanitizer_install_malloc_and_free_hooks(&onAlloc, &onFree);
        require(installed > 0, "the allocator takes hooks");
        const size_t limit = size_t(inputSize) * 64;
        s_limit = limit > kLeast ? limit : kLeast;
    }
    ~AllocationLimit() { s_limit = 0; }
    AllocationLimit(const AllocationLimit &) = delete;
    AllocationLimit &operator=(const AllocationLimit &) = delete;

private:
    static constexpr size_t kLeast = 16 * 1024 * 1024;

    static void onAlloc(const volatile void *, size_t size)
    {
        const size_t limit = s_limit;
        if (limit == 0 || size <= limit)
            return;
        s_limit = 0;
        std::fprintf(stderr, "an allocation of %zu bytes, more than %zu\n", size, limit);
        __sanitizer_print_stack_trace();
        require(false, "memory follows the bytes that came");
    }
    static void onFree(const volatile void *) {}

    static inline std::atomic<size_t> s_limit{0};
};

/// Thrown by a target's callbacks where an application would cancel.
struct Canceled {
};

enum class Outcome { Done, Refused, Canceled };

/// Runs what may end with one of the exceptions that the library documents; any other is a finding.
template<class Call>
Outcome outcomeOf(Call &&call)
{
    try {
        call();
        return Outcome::Done;
    } catch (const QString &text) {
        require(!text.isEmpty(), "an error has a text");
    } catch (const Exception &exception) {
        require(!exception.message.isEmpty(), "an error has a text");
    } catch (const Canceled &) {
        return Outcome::Canceled;
    }
    return Outcome::Refused;
}

/// A stream over bytes in memory.
class MemoryStream : public QDataStream
{
public:
    explicit MemoryStream(const QByteArray &bytes = QByteArray())
    {
        m_buffer.setData(bytes);
        m_buffer.open(QIODevice::ReadWrite);
        setDevice(&m_buffer);
    }
    ~MemoryStream() { setDevice(nullptr); }
    QByteArray bytes() const { return m_buffer.data(); }

private:
    QBuffer m_buffer;
};

/// Warnings are part of what the library does with bad input; printed, they would be most of what
/// it does.
inline const QtMessageHandler kMuted =
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text)); // Qt aborts behind it
    });
