#include "CheckLogger.h"

#include <cstring>

#include "foundation/ParseEngine.h"

void TextPosition::restart(const char* text) {
    m_text = text;
    m_offset = 0;
    m_line = 1;
    m_charsInLine = 0;
}

void TextPosition::moveTo(const char* text, int offset) {
    if (text != m_text || offset < m_offset) restart(text);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    for (int i = m_offset; i < offset; ++i) {
        unsigned char c = p[i];
        if (c == '\n') {
            ++m_line;
            m_charsInLine = 0;
        } else if ((c & 0xC0) != 0x80) {  // not a UTF-8 continuation byte
            ++m_charsInLine;
        }
    }
    if (offset > m_offset) m_offset = offset;
}

void CheckLogger::logError(const char* message) {
    if (!m_engine) {
        m_held.push_back(message ? message : "");
        return;
    }
    finish();
    m_pending = Entry();
    m_pending.message = message ? message : "";
    m_pending.hasPosition = true;
    m_position.moveTo(m_engine->textPtr, m_engine->cursor);
    m_pending.line = m_position.line();
    m_pending.column = m_position.column();
    m_pending.atEnd = m_engine->textPtr[m_engine->cursor] == '\0';
    m_hasPending = true;
}

void CheckLogger::logNameValue(const char* name, const char* value) {
    std::string n = name ? name : "";
    std::string v = value ? value : "";
    if (!m_engine) {
        m_held.push_back(n + ": " + v);
        return;
    }
    if (!m_hasPending) {
        // A value with no error before it: report it on its own line.
        m_pending = Entry();
        m_pending.message = n;
        m_hasPending = true;
    }
    if (!m_pending.detail.empty()) m_pending.detail += ", ";
    if (n == "error_tag") {
        m_pending.detail += "element '" + v + "'";
    } else {
        m_pending.detail += n + " '" + v + "'";
    }
}

void CheckLogger::releaseHeld() {
    for (const std::string& text : m_held) {
        std::fprintf(m_out, "%s: %s\n", m_name.c_str(), text.c_str());
        ++m_count;
    }
    m_held.clear();
}

void CheckLogger::finish() {
    if (!m_hasPending) return;
    print(m_pending);
    m_hasPending = false;
}

void CheckLogger::print(const Entry& e) {
    if (m_beforePrint) m_beforePrint();
    std::string detail = e.detail;
    if (e.atEnd) detail += detail.empty() ? "end of input" : ", end of input";
    if (e.hasPosition) {
        std::fprintf(m_out, "%s:%d:%d: %s", m_name.c_str(), e.line, e.column, e.message.c_str());
    } else {
        std::fprintf(m_out, "%s: %s", m_name.c_str(), e.message.c_str());
    }
    if (!detail.empty()) std::fprintf(m_out, " (%s)", detail.c_str());
    std::fputc('\n', m_out);
    ++m_count;
}
