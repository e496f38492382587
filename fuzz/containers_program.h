#ifndef XMLTREE_FUZZ_CONTAINERS_PROGRAM_H
#define XMLTREE_FUZZ_CONTAINERS_PROGRAM_H

// Reads a byte string as a program of edits on the foundation containers
// (StringBuffer, DataBuffer, AttributeSet, ExtPtrArray, the queue) and checks each
// container against a standard-library model after every step. Shared by the
// containers fuzzer and the test that replays its corpus.
//
// What the models catch: lost or shifted bytes and elements, a text not
// terminated, lookups that find the wrong duplicate. What the sanitizers
// add: texts and slot arrays move between the inline room, the pool's blocks
// and malloc, and edits take pieces of a container's own storage as
// arguments, so a block freed too early or given to the wrong allocator
// shows at once.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/AttributeSet.h"
#include "foundation/DataBuffer.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "foundation/WithRoom.h"
#include "foundation/mxQueue.h"

namespace containersfuzz {

// The program's bytes; reads past the end give zeros.
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    bool done() const { return p_ >= end_; }
    unsigned byte() { return p_ < end_ ? *p_++ : 0u; }
    // Lengths around the inline room (20 and 24 bytes), the pool's largest
    // block (256) and beyond.
    std::string text() {
        static const int kLengths[] = {0,   1,   3,   19,  20,  21,  24,  40,
                                       228, 229, 254, 255, 256, 300, 5000};
        const unsigned pick = byte();
        return std::string(static_cast<size_t>(kLengths[pick % 15]), "ab&;x"[(pick / 15) % 5]);
    }

  private:
    const uint8_t* p_;
    const uint8_t* end_;
};

inline void* slot(long i) {
    return reinterpret_cast<void*>(i);
}

// Orders slots by their value divided by ten, so that equal keys show whether
// the sort is stable.
inline int byTens(const void* a, const void* b) {
    const long x = reinterpret_cast<long>(*static_cast<void* const*>(a)) / 10;
    const long y = reinterpret_cast<long>(*static_cast<void* const*>(b)) / 10;
    return x < y ? -1 : x > y ? 1 : 0;
}

// Replaces every occurrence of `from` (not empty), scanning once from the left.
inline int replaceAll(std::string& s, const std::string& from, const std::string& to) {
    std::string out;
    int count = 0;
    for (size_t pos = 0;;) {
        const size_t hit = s.find(from, pos);
        out += s.substr(pos, hit == std::string::npos ? hit : hit - pos);
        if (hit == std::string::npos) break;
        out += to;
        ++count;
        pos = hit + from.size();
    }
    s = out;
    return count;
}

class Program {
  public:
    // "" when every container agreed with its model at every step; else what
    // differed, and where.
    std::string run(const uint8_t* data, size_t size) {
        Reader in(data, size);
        for (step_ = 0; !in.done() && error_.empty(); ++step_) {
            const unsigned op = in.byte();
            switch (op % 4) {
                case 0:
                    editText(op / 4, in);
                    break;
                case 1:
                    editAttributes(op / 4, in);
                    break;
                case 2:
                    editArray(op / 4, in);
                    break;
                default:
                    editQueue(op / 4);
            }
        }
        return error_;
    }

  private:
    void expect(bool ok, const char* what) {
        if (!ok && error_.empty()) error_ = std::string(what) + " at step " + std::to_string(step_);
    }

    void editText(unsigned op, Reader& in) {
        const std::string t = in.text();
        const int size = sb_->getSize();
        const int at = static_cast<int>(in.byte() % static_cast<unsigned>(size + 1));
        switch (op % 11) {
            case 0:
                expect(sb_->append(t.c_str()), "append");
                text_ += t;
                break;
            case 1:  // a piece of its own text, while it may have to grow
                expect(sb_->appendN(sb_->getString() + at, size - at), "appendN");
                text_ += text_.substr(static_cast<size_t>(at));
                break;
            case 2:
                expect(sb_->prepend(t.c_str()), "prepend");
                text_ = t + text_;
                break;
            case 3:
                expect(sb_->prepend(sb_->getString() + at), "prepend own");
                text_ = text_.substr(static_cast<size_t>(at)) + text_;
                break;
            case 4:
                expect(sb_->setString(at < size ? sb_->pCharAt(at) : t.c_str()), "setString");
                text_ = at < size ? text_.substr(static_cast<size_t>(at)) : t;
                break;
            case 5: {
                const int n = at + static_cast<int>(in.byte() % 2) * 50;  // may pass the start
                sb_->shorten(n);
                text_.resize(text_.size() - std::min(text_.size(), static_cast<size_t>(n)));
                break;
            }
            case 6:
                if (op & 16) {  // a new buffer, made with room as the parser makes them
                    StringBuffer* fresh =
                        xmltree::WithRoom::text(t.data(), static_cast<int>(t.size()));
                    expect(fresh != nullptr, "a buffer with room");
                    if (!fresh) break;
                    sb_.reset(fresh);
                    text_ = t;
                }
                sb_->minimizeMemoryUsage();
                break;
            case 7: {
                StringBuffer copy(*sb_);
                copy.append(t.c_str());
                *sb_ = copy;
                text_ += t;
                if (op & 16) {  // assigned to itself
                    StringBuffer& self = *sb_;
                    *sb_ = self;
                }
                break;
            }
            case 8:
                expect(sb_->reserveMore(static_cast<int>(t.size()) + 1), "reserveMore");
                sb_->appendUnchecked(t.data(), static_cast<int>(t.size()));
                text_ += t;
                if (op & 16) {  // each ends the text on its own
                    sb_->appendCharUnchecked('!');
                    text_ += "!";
                }
                break;
            case 9: {
                const std::string from = t.substr(0, 1 + in.byte() % 2);
                const std::string to = in.text().substr(0, in.byte() % 4);
                if (from.empty()) break;
                const int count = sb_->replaceAllOccurances(from.c_str(), to.c_str());
                expect(count == replaceAll(text_, from, to), "replaceAllOccurances count");
                break;
            }
            default:
                expect(sb_->appendCharN('c', at % 30), "appendCharN");
                text_.append(static_cast<size_t>(at % 30), 'c');
        }
        expect(std::string(sb_->getString(), static_cast<size_t>(sb_->getSize())) == text_, "text");
        expect(sb_->getString()[sb_->getSize()] == '\0', "terminator");
        expect(sb_->lastChar() == (text_.empty() ? '\0' : text_.back()), "lastChar");
        expect(sb_->pCharAt(sb_->getSize() + 1) == nullptr, "pCharAt past the end");
        if (text_.size() > 20000) {
            sb_->clear();
            text_.clear();
        }
    }

    // Bytes, NULs included; appends of the buffer's own bytes while it grows.
    void editBytes(unsigned op, Reader& in) {
        const std::string t = in.text() + std::string(in.byte() % 2, '\0');
        const unsigned n = in.byte() % (static_cast<unsigned>(bytes_.size()) + 2);
        switch (op % 7) {
            case 0:
            case 1:
                expect(data_.append(t.data(), static_cast<unsigned>(t.size())), "append bytes");
                bytes_ += t;
                break;
            case 2:
                expect(data_.append(data_), "append itself");
                bytes_ += bytes_;
                break;
            case 3:
                data_.removeHead(n);
                bytes_.erase(0, n);
                break;
            case 4:
                data_.shorten(n);
                bytes_.resize(bytes_.size() - std::min<size_t>(n, bytes_.size()));
                break;
            case 5: {
                DataBuffer copy(data_), moved;
                moved.takeData(copy);
                expect(copy.getSize() == 0 && copy.getData2() == nullptr, "takeData empties");
                data_ = moved;
                break;
            }
            default:
                expect(data_.appendChar(static_cast<unsigned char>(n)), "appendChar");
                bytes_ += static_cast<char>(n);
        }
        const char* d = reinterpret_cast<const char*>(data_.getData2());
        expect(data_.getSize() == bytes_.size() &&
                   (bytes_.empty() || std::equal(bytes_.begin(), bytes_.end(), d)),
               "bytes");
        if (bytes_.size() > 50000) {
            data_.clear();
            bytes_.clear();
        }
    }

    void editAttributes(unsigned op, Reader& in) {
        const std::string name = "n" + std::to_string(in.byte() % 12);
        const std::string value = in.text();
        auto first = [&] {
            return std::find_if(pairs_.begin(), pairs_.end(),
                                [&](const auto& p) { return p.first == name; });
        };
        switch (op % 8) {
            case 0:
            case 1:
            case 2:
                expect(attrs_->addAttribute(name.c_str(), value.c_str()), "addAttribute");
                pairs_.emplace_back(name, value);
                break;
            case 3: {
                const bool present = first() != pairs_.end();
                expect(attrs_->removeAttribute(name.c_str()) == present, "removeAttribute");
                if (present) pairs_.erase(first());  // the first of that name
                break;
            }
            case 4: {
                AttributeSet copy(*attrs_);
                attrs_->clear();
                *attrs_ = copy;
                break;
            }
            case 5:
                attrs_->shrinkToFit();
                break;
            case 6:
                expect(attrs_->reserve(attrs_->getSize() + 3, 100), "reserve");
                break;
            default:
                if (op % 16 == 7) {  // a new set, made with room as the parser makes them
                    const unsigned k = in.byte();
                    AttributeSet* fresh =
                        xmltree::WithRoom::attributeSet(static_cast<int>(k % 8), k * 3 % 250);
                    expect(fresh != nullptr, "a set with room");
                    if (fresh) attrs_.reset(fresh);
                    attrs_->clear();
                    pairs_.clear();
                }
        }
        expect(attrs_->getSize() == static_cast<int>(pairs_.size()), "attribute count");
        for (size_t i = 0; i < pairs_.size() && error_.empty(); ++i) {
            expect(pairs_[i].first == attrs_->nameAt(static_cast<int>(i)), "attribute name");
            expect(pairs_[i].second == attrs_->valueAt(static_cast<int>(i)), "attribute value");
        }
        const auto hit = first();
        expect(attrs_->indexOf(name.c_str()) == (hit == pairs_.end() ? -1 : hit - pairs_.begin()),
               "indexOf finds the first");
        expect(attrs_->hasAttrWithValue(name.c_str(), value.c_str()) ==
                   (hit != pairs_.end() && hit->second == value),
               "hasAttrWithValue");
        if (pairs_.size() > 300) {
            attrs_->clear();
            pairs_.clear();
        }
    }

    void editArray(unsigned op, Reader& in) {
        const int size = array_->getSize();
        const int at = static_cast<int>(in.byte() % static_cast<unsigned>(size + 3)) - 1;
        const long value = ++counter_;
        switch (op % 12) {
            case 0:
            case 1:
            case 2:
            case 3:
                expect(array_->append(slot(value)), "append");
                slots_.push_back(slot(value));
                break;
            case 4:
            case 5:
            case 6:  // indexes before the start and past the end included
                expect(array_->insertAt(at, slot(value)), "insertAt");
                slots_.insert(slots_.begin() + std::clamp(at, 0, size), slot(value));
                break;
            case 7:
            case 8: {
                const bool inRange = at >= 0 && at < size;
                expect(array_->removeAt(at) == (inRange ? slots_[static_cast<size_t>(at)] : nullptr),
                       "removeAt");
                if (inRange) slots_.erase(slots_.begin() + at);
                break;
            }
            case 9:
                expect(array_->pop() == (slots_.empty() ? nullptr : slots_.back()), "pop");
                if (!slots_.empty()) slots_.pop_back();
                break;
            case 10:
                array_->sort(byTens);
                std::stable_sort(slots_.begin(), slots_.end(),
                                 [](void* x, void* y) { return byTens(&x, &y) < 0; });
                break;
            default:
                if (op % 24 == 11) {
                    array_->removeAll();
                    slots_.clear();
                } else if (ExtPtrArray* fresh = xmltree::WithRoom::array(at + 1)) {
                    // An array with its first slots in its own block, as a
                    // children array is made, from then on.
                    array_.reset(fresh);
                    slots_.clear();
                }
        }
        expect(array_->getSize() == static_cast<int>(slots_.size()), "array size");
        expect(std::equal(slots_.begin(), slots_.end(), array_->getItems()), "array slots");
        expect(array_->elementAt(at) ==
                   (at >= 0 && at < array_->getSize() ? slots_[static_cast<size_t>(at)] : nullptr),
               "elementAt");
        expect(array_->lastElement() == (slots_.empty() ? nullptr : slots_.back()), "lastElement");
    }

    void editQueue(unsigned op) {
        if (op % 5 < 3) {
            queue_.push(slot(++counter_));
            fifo_.push_back(slot(counter_));
        } else if (op % 5 < 4) {
            expect(queue_.pop() == (fifo_.empty() ? nullptr : fifo_.front()), "queue pop");
            if (!fifo_.empty()) fifo_.pop_front();
        } else if (op % 40 == 4) {
            queue_.clear();
            fifo_.clear();
        }
        expect(queue_.getSize() == static_cast<int>(fifo_.size()), "queue size");
        expect(queue_.hasObjects() == !fifo_.empty(), "queue hasObjects");
    }

    size_t step_ = 0;
    std::string error_;
    std::unique_ptr<StringBuffer> sb_{new StringBuffer()};
    std::string text_;
    DataBuffer data_;
    std::string bytes_;
    std::unique_ptr<AttributeSet> attrs_{new AttributeSet()};
    std::vector<std::pair<std::string, std::string>> pairs_;
    std::unique_ptr<ExtPtrArray> array_{new ExtPtrArray()};
    std::vector<void*> slots_;
    _mxQueue queue_;
    std::deque<void*> fifo_;
    long counter_ = 0;
};

// "" when the program ran with every container matching its model.
inline std::string check(const uint8_t* data, size_t size) {
    return Program().run(data, size);
}

}  // namespace containersfuzz

#endif
