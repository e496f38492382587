#include "foundation/DataBuffer.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/LogBase.h"
#include "foundation/MemoryHook.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"

namespace {

// Base64 symbol values; 0xFF for bytes outside the alphabet, 0xFE for '='.
struct Base64Table {
    unsigned char value[256];
    constexpr Base64Table() : value() {
        for (int i = 0; i < 256; ++i) value[i] = 0xFF;
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(alphabet[i])] = static_cast<unsigned char>(i);
        value[static_cast<unsigned char>('=')] = 0xFE;
    }
};
constexpr Base64Table kBase64;

}  // namespace

DataBuffer::DataBuffer(const DataBuffer& other) : DataBuffer() { append(other); }

DataBuffer& DataBuffer::operator=(const DataBuffer& other) {
    if (this != &other) {
        if (other.m_size > m_cap) {
            unsigned char* block =
                static_cast<unsigned char*>(xmltree::mem::allocate(other.m_size));
            if (!block) {
                setFailed();  // out of memory: unchanged
                return *this;
            }
            xmltree::mem::release(m_data);
            m_data = block;
            m_cap = other.m_size;
        }
        if (other.m_size) std::memcpy(m_data, other.m_data, other.m_size);
        m_size = other.m_size;
    }
    return *this;
}

DataBuffer::~DataBuffer() {
    xmltree::mem::release(m_data);
}

bool DataBuffer::growTo(unsigned int neededCap) {
    if (neededCap == 0) return setFailed();
    if (neededCap <= m_cap) return true;
    unsigned int newCap = (m_cap <= UINT32_MAX / 2) ? m_cap * 2 : UINT32_MAX;
    if (newCap < neededCap) newCap = neededCap;
    if (newCap < 64) newCap = 64;
    unsigned char* block = static_cast<unsigned char*>(xmltree::mem::reallocate(m_data, newCap));
    if (!block) return setFailed();
    m_data = block;
    m_cap = newCap;
    return true;
}

bool DataBuffer::reserve(unsigned int totalBytes) {
    return totalBytes == 0 || growTo(totalBytes);
}

bool DataBuffer::append(const void* bytes, unsigned int n) {
    if (n == 0) return true;
    if (!bytes) return false;
    if (n > UINT32_MAX - m_size) return setFailed();
    const unsigned char* src = static_cast<const unsigned char*>(bytes);
    // The bytes may be our own, which growing can move.
    const uintptr_t up = reinterpret_cast<uintptr_t>(src);
    const uintptr_t base = reinterpret_cast<uintptr_t>(m_data);
    const bool inside = m_data && up >= base && up < base + m_cap;
    const size_t offset = static_cast<size_t>(up - base);
    if (!growTo(m_size + n)) return false;
    if (inside) src = m_data + offset;
    std::memmove(m_data + m_size, src, n);
    m_size += n;
    return true;
}

bool DataBuffer::append(const DataBuffer& other) { return append(other.m_data, other.m_size); }

bool DataBuffer::appendEncoded(const char* text, const char* encoding) {
    if (!encoding || mxStrICmp(encoding, "base64") != 0) return false;
    if (!text) return true;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const size_t len = std::strlen(text);
    // Every 4 symbols give at most 3 bytes.
    if (len / 4 * 3 + 3 > UINT32_MAX - m_size) return setFailed();
    if (!growTo(m_size + static_cast<unsigned int>(len / 4 * 3 + 3))) return false;
    unsigned char* w = m_data + m_size;
    uint32_t acc = 0;
    int have = 0;
    for (const unsigned char* end = p + len; p < end; ++p) {
        const unsigned char v = kBase64.value[*p];
        if (v >= 64) {
            if (v == 0xFE) break;  // '=' ends the data
            continue;              // line breaks, blanks and other noise
        }
        acc = (acc << 6) | v;
        if (++have == 4) {
            *w++ = static_cast<unsigned char>(acc >> 16);
            *w++ = static_cast<unsigned char>(acc >> 8);
            *w++ = static_cast<unsigned char>(acc);
            acc = 0;
            have = 0;
        }
    }
    // A truncated final group gives what its bits hold: 2 symbols carry one
    // byte, 3 symbols two; a lone symbol carries no whole byte.
    if (have == 2) {
        *w++ = static_cast<unsigned char>(acc >> 4);
    } else if (have == 3) {
        *w++ = static_cast<unsigned char>(acc >> 10);
        *w++ = static_cast<unsigned char>(acc >> 2);
    }
    m_size = static_cast<unsigned int>(w - m_data);
    return true;
}

void DataBuffer::removeHead(unsigned int n) {
    if (n >= m_size) {
        m_size = 0;
        return;
    }
    if (n == 0) return;
    std::memmove(m_data, m_data + n, m_size - n);
    m_size -= n;
}

void DataBuffer::shorten(unsigned int n) { m_size = (n >= m_size) ? 0 : m_size - n; }

void DataBuffer::takeData(DataBuffer& other) {
    if (&other == this) return;
    xmltree::mem::release(m_data);
    m_data = other.m_data;
    m_size = other.m_size;
    m_cap = other.m_cap;
    m_failed = other.m_failed;
    other.m_failed = false;
    other.m_data = nullptr;
    other.m_size = 0;
    other.m_cap = 0;
}

bool DataBuffer::loadFileUtf8(const char* path, LogBase* log) {
    if (!path) {
        if (log) log->logError("Failed to open file: no path given");
        return false;
    }
    auto fail = [&](const char* what, int err) {
        if (log) {
            StringBuffer msg(what);
            msg.append(": ");
            msg.append(path);
            if (err) {
                msg.append(" (");
                msg.append(std::strerror(err));
                msg.append(")");
            }
            // Out of memory, the message may not fit: the cause alone then.
            log->logError(msg.hasFailed() ? what : msg.getString());
        }
        return false;
    };
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return fail("Failed to open file", errno);

    // Read into a separate buffer so that a failure leaves this one as it was.
    DataBuffer loaded;
    struct stat st;
    if (fstat(fileno(f), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            std::fclose(f);
            return fail("Failed to read file", EISDIR);
        }
        if (S_ISREG(st.st_mode)) {
            if (static_cast<unsigned long long>(st.st_size) >= UINT32_MAX) {
                std::fclose(f);
                return fail("File too large", 0);
            }
            // One byte more, for the NUL a parse puts after the text.
            if (st.st_size > 0 && !loaded.reserve(static_cast<unsigned int>(st.st_size) + 1u)) {
                std::fclose(f);
                return fail("Out of memory reading file", 0);
            }
        }
    }
    // Read until end of file; the size found above is only a first guess
    // (there is none for pipes, and the file may change under us).
    for (;;) {
        if (loaded.m_size == loaded.m_cap) {
            // Full: probe for one more byte before growing, so that a file
            // of exactly the expected size costs no extra allocation.
            const int c = std::fgetc(f);
            if (c == EOF) break;
            if (!loaded.appendChar(static_cast<unsigned char>(c))) {
                std::fclose(f);
                return fail(loaded.m_size == ~0u ? "File too large" : "Out of memory reading file",
                            0);
            }
            continue;
        }
        const size_t room = loaded.m_cap - loaded.m_size;
        const size_t got = std::fread(loaded.m_data + loaded.m_size, 1, room, f);
        loaded.m_size += static_cast<unsigned int>(got);
        if (got < room) break;
    }
    const int readErr = std::ferror(f) ? errno : 0;
    std::fclose(f);
    if (readErr) return fail("Failed to read file", readErr);
    takeData(loaded);
    return true;
}
