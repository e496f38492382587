#include "foundation/ParseEngine.h"

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>

#include "foundation/ByteScan.h"
#include "foundation/DataBuffer.h"
#include "foundation/InputLimit.h"
#include "foundation/MemoryHook.h"
#include "foundation/TextTransfer.h"

namespace {

std::atomic<std::size_t> tnInputLimit{xmltree::kMaxParseInput};

}  // namespace

std::size_t xmltree::parseInputLimit() noexcept {
    return tnInputLimit.load(std::memory_order_relaxed);
}

void xmltree::setParseInputLimitForTesting(std::size_t bytes) noexcept {
    tnInputLimit.store(bytes && bytes < kMaxParseInput ? bytes : kMaxParseInput,
                       std::memory_order_relaxed);
}

ParseEngine::ParseEngine() : textPtr(nullptr), cursor(0) { syncPtr(); }

ParseEngine::ParseEngine(const DataBuffer& data) : textPtr(nullptr), cursor(0) {
    const unsigned int n = data.getSize();
    if (n && data.getData2()) {
        if (n > xmltree::parseInputLimit()) {
            refuseTooLarge();
        } else {
            textBuf.appendN(reinterpret_cast<const char*>(data.getData2()), static_cast<int>(n));
        }
    }
    syncPtr();
}

bool TextTransfer::load(DataBuffer& from, ParseEngine& engine) {
    const unsigned int n = from.getSize();
    if (n > xmltree::parseInputLimit()) {
        engine.refuseTooLarge();
    } else if (move(from, engine.textBuf) || (makeRoomForNul(from) && move(from, engine.textBuf))) {
        engine.syncPtr();
        return true;
    } else if (n) {
        engine.appendBytes(reinterpret_cast<const char*>(from.getData2()), n);
    }
    return false;
}

// A buffer filled by one append has no spare byte. Growing its block by
// one byte (in place, or by remapping, for most large blocks) is cheaper
// than a second copy of the document, and the bytes stay as they were.
bool TextTransfer::makeRoomForNul(DataBuffer& buffer) {
    if (buffer.m_size == 0 || buffer.m_size != buffer.m_cap || buffer.m_cap == UINT32_MAX)
        return false;
    void* block = xmltree::mem::reallocate(buffer.m_data, std::size_t{buffer.m_cap} + 1);
    if (!block) return false;
    buffer.m_data = static_cast<unsigned char*>(block);
    ++buffer.m_cap;
    return true;
}

void TextTransfer::giveBack(ParseEngine& engine, DataBuffer& to) {
    StringBuffer& text = engine.textBuf;
    to.m_data = reinterpret_cast<unsigned char*>(text.m_data);
    to.m_size = text.m_size;
    to.m_cap = text.m_cap + 1;  // the NUL's byte was the buffer's spare room
    text.resetInline();
    engine.cursor = 0;
    engine.syncPtr();
}

bool ParseEngine::refuseTooLarge() {
    m_tooLarge = true;
    textBuf.markFailed();
    return false;
}

ParseEngine::~ParseEngine() {}

bool ParseEngine::append(const char* s) {
    return s ? appendBytes(s, std::strlen(s)) : true;
}

bool ParseEngine::appendN(const char* p, int n) {
    return n >= 0 && appendBytes(p, static_cast<std::size_t>(n));
}

bool ParseEngine::appendBytes(const char* p, std::size_t n) {
    if (n > xmltree::parseInputLimit() - static_cast<std::size_t>(textBuf.getSize()))
        return refuseTooLarge();
    const bool ok = textBuf.appendN(p, static_cast<int>(n));
    syncPtr();
    return ok;
}

void ParseEngine::captureToNext(const char* delimiters, StringBuffer& out) {
    const char* start = textPtr + cursor;
    // strcspn builds its byte table once per call and stops at the NUL.
    const size_t n = std::strcspn(start, delimiters ? delimiters : "");
    captureSpan(start, static_cast<int>(n), out);
}

void ParseEngine::captureToNext2(const char* delimiters, StringBuffer& out) {
    const char* start = textPtr + cursor;
    const char d0 = delimiters ? delimiters[0] : '\0';
    const char d1 = d0 ? delimiters[1] : '\0';
    const char* p = d1 == '\0' || d1 == d0
                        ? bytescan::findCharOrEnd(start, d0)
                        : bytescan::findEither(start, textPtr + getTextSize(), d0, d1);
    captureSpan(start, static_cast<int>(p - start), out);
}

void ParseEngine::captureToNext5(const char* delimiters, StringBuffer& out) {
    captureToNext(delimiters, out);
}

void ParseEngine::captureToNext7(const char* delimiters, StringBuffer& out) {
    captureToNext(delimiters, out);
}

void ParseEngine::captureToNextChar(char c, StringBuffer& out) {
    const char* start = textPtr + cursor;
    captureSpan(start, static_cast<int>(bytescan::findCharOrEnd(start, c) - start), out);
}

void ParseEngine::skipUntilChar(char c) {
    const char* start = textPtr + cursor;
    cursor += static_cast<int>(bytescan::findCharOrEnd(start, c) - start);
}

bool ParseEngine::skipUntilChar2(char first, char second) {
    const char* p = bytescan::findEither(textPtr + cursor, textPtr + getTextSize(), first, second);
    cursor = static_cast<int>(p - textPtr);
    return *p != '\0' && *p == first;
}

bool ParseEngine::seekAndSkipExact(const char* s) {
    if (!s) s = "";
    const char* start = textPtr + cursor;
    const char* hit = bytescan::findText(start, s);
    if (!hit) {
        cursor += static_cast<int>(std::strlen(start));
        return false;
    }
    cursor = static_cast<int>(hit - textPtr) + static_cast<int>(std::strlen(s));
    return true;
}

void ParseEngine::seekAndCopy(const char* s, StringBuffer& out) {
    if (!s) s = "";
    const char* start = textPtr + cursor;
    const char* hit = bytescan::findText(start, s);
    const char* stop = hit ? hit + std::strlen(s) : start + std::strlen(start);
    captureSpan(start, static_cast<int>(stop - start), out);
}

bool ParseEngine::seekAndCopyToClosing(char open, char close, int depth, StringBuffer& out) {
    const char* start = textPtr + cursor;
    const char* p = start;
    const char stops[3] = {open, close, '\0'};
    for (;;) {
        p += std::strcspn(p, stops);
        const char c = *p;
        if (c == '\0') {
            captureSpan(start, static_cast<int>(p - start), out);
            return false;
        }
        ++p;
        if (c == close) {
            if (--depth <= 0) break;
        } else {
            ++depth;
        }
    }
    captureSpan(start, static_cast<int>(p - start), out);
    return true;
}
