#ifndef XMLTREE_FOUNDATION_DATABUFFER_H
#define XMLTREE_FOUNDATION_DATABUFFER_H

class LogBase;

// A growable array of bytes (zero bytes allowed anywhere). Storage is a
// malloc'd block that grows geometrically. Copying copies the bytes.
// Nothing here throws: when memory runs out, or the contents would pass
// 4 GiB - 1 bytes, a modifying call returns false, leaves the contents as
// they were and sets the failure mark (hasFailed) until clear().
class DataBuffer {
public:
    // Empty, with no storage.
    DataBuffer() : m_data(nullptr), m_size(0), m_cap(0), m_failed(false) {}
    // Copies the bytes. Without memory a new copy is empty and an assigned
    // one unchanged.
    DataBuffer(const DataBuffer& other);
    DataBuffer& operator=(const DataBuffer& other);
    ~DataBuffer();

    // First byte, valid until the next modification. Null for a buffer that
    // never held any storage; after clear() it may be non-null with size 0.
    const unsigned char* getData2() const { return m_data; }
    // The same, writable.
    unsigned char* getDataMutable() { return m_data; }
    // Number of bytes held.
    unsigned int getSize() const { return m_size; }
    // Bytes that fit before the storage must grow.
    unsigned int getCapacity() const { return m_cap; }

    // Appends other's bytes.
    bool append(const DataBuffer& other);
    bool append(const void* bytes, unsigned int n);  // bytes may lie inside this buffer
    // Appends one byte.
    bool appendChar(unsigned char b) {
        if (m_size == m_cap && !growTo(m_size == ~0u ? 0u : m_size + 1u)) return false;
        m_data[m_size++] = b;
        return true;
    }
    // Decodes `text` in the named encoding and appends the bytes. Only
    // "base64" (any letter case) is known; other names append nothing and
    // return false. Base64 decoding skips bytes outside the alphabet (line
    // breaks, blanks), stops at the first '=', and decodes a truncated final
    // group as far as it goes (2 symbols give 1 byte, 3 give 2, 1 gives none).
    bool appendEncoded(const char* text, const char* encoding);

    // Empties the buffer and resets the failure mark; keeps the storage.
    void clear() {
        m_size = 0;
        m_failed = false;
    }
    // True once an operation could not make room for its bytes: the
    // contents then lack what it would have added. Sticky until clear().
    bool hasFailed() const { return m_failed; }
    void removeHead(unsigned int n);  // drops the first n bytes (all if n >= size)
    void shorten(unsigned int n);     // drops the last n bytes (all if n >= size)
    // Takes over other's storage and failure mark; other is left empty with
    // no storage.
    void takeData(DataBuffer& other);
    // Room for totalBytes in all; false when memory runs out.
    bool reserve(unsigned int totalBytes);

    // Replaces the contents with the whole file at `path`. On failure the
    // contents are unchanged, a message naming the path and the cause goes
    // to log->logError (when log is not null), and the result is false.
    bool loadFileUtf8(const char* path, LogBase* log);

private:
    friend class TextTransfer;
    // Room for neededCap bytes in all; 0 stands for one byte past the
    // largest size, which can never be had.
    bool growTo(unsigned int neededCap);
    bool setFailed() {
        m_failed = true;
        return false;
    }

    unsigned char* m_data;
    unsigned int m_size;
    unsigned int m_cap;
    bool m_failed;
};

#endif
