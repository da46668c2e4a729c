// Line coverage files: LCOV tracefiles read, merged and written, and the lines that hold code in a
// compiled chunk, so that lines never reached are listed with 0 hits.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

#include "sweep.h"

namespace qavlua {
namespace {

// Reads a binary chunk as string.dump (lua_dump) writes it, without stripping, in the layout of
// Lua 5.2, 5.3 or 5.4 as its header says. Only what the line table needs is kept; everything
// else is stepped over. Any inconsistency ends the walk with ok = false.
class ChunkReader {
  public:
    explicit ChunkReader(std::string_view data) : data_(data) {}

    bool lines(std::set<int> &out) {
        if (!header()) return false;
        function(out, 0);
        return ok_ && pos_ == data_.size();
    }

  private:
    std::string_view data_;
    size_t pos_ = 0;
    bool ok_ = true;
    int version_ = 0;
    size_t int_ = 4, size_ = 8, instruction_ = 4, integer_ = 8, number_ = 8;

    uint8_t byte() {
        if (pos_ >= data_.size()) {
            ok_ = false;
            return 0;
        }
        return static_cast<uint8_t>(data_[pos_++]);
    }
    void skip(uint64_t n) {
        if (n > data_.size() - pos_) {
            ok_ = false;
            pos_ = data_.size();
        } else {
            pos_ += n;
        }
    }
    // A native-order integer of `width` bytes (the dump comes from this very process).
    int64_t raw(size_t width) {
        if (width > 8 || width > data_.size() - pos_) {
            ok_ = false;
            pos_ = data_.size();
            return 0;
        }
        int64_t value = 0;
        if (width == 4) {
            int32_t v = 0;
            std::memcpy(&v, data_.data() + pos_, 4);
            value = v;
        } else if (width == 8) {
            std::memcpy(&value, data_.data() + pos_, 8);
        } else {
            ok_ = false;
        }
        pos_ += width;
        return value;
    }
    // 5.4: seven bits a byte, most significant first, the last byte marked by its top bit.
    uint64_t varint() {
        uint64_t value = 0;
        for (int i = 0; i < 10 && ok_; ++i) {
            uint8_t b = byte();
            value = (value << 7) | (b & 0x7F);
            if (b & 0x80) return value;
        }
        ok_ = false;
        return 0;
    }
    int64_t integer() { return version_ == 0x54 ? static_cast<int64_t>(varint()) : raw(int_); }
    uint64_t count() {
        int64_t n = integer();
        if (n < 0 || static_cast<uint64_t>(n) > data_.size()) ok_ = false;
        return ok_ ? static_cast<uint64_t>(n) : 0;
    }
    void string() {
        if (version_ == 0x54) {
            uint64_t n = varint();
            if (n > 0) skip(n - 1);
        } else if (version_ == 0x53) {
            uint64_t n = byte();
            if (n == 0xFF) n = static_cast<uint64_t>(raw(size_));
            if (n > 0) skip(n - 1);
        } else {
            skip(static_cast<uint64_t>(raw(size_))); // the count includes the terminating zero
        }
    }

    bool header() {
        if (data_.substr(0, 4) != "\x1bLua") return false;
        pos_ = 4;
        version_ = byte();
        byte(); // format
        if (version_ == 0x52) {
            byte(); // endianness
            int_ = byte();
            size_ = byte();
            instruction_ = byte();
            number_ = byte();
            byte(); // integral numbers
            skip(6);
        } else if (version_ == 0x53 || version_ == 0x54) {
            skip(6);
            if (version_ == 0x53) {
                int_ = byte();
                size_ = byte();
            }
            instruction_ = byte();
            integer_ = byte();
            number_ = byte();
            skip(integer_ + number_);
            byte(); // upvalue count of the main function
        } else {
            return false;
        }
        return ok_;
    }

    void constants() {
        uint64_t n = count();
        for (uint64_t i = 0; i < n && ok_; ++i) {
            uint8_t tag = byte();
            if (tag == 0 || (version_ == 0x54 && (tag == 0x01 || tag == 0x11))) continue; // nil, booleans
            if (tag == 1) {
                byte(); // 5.2 and 5.3 boolean value
            } else if (tag == 3) {
                skip(version_ == 0x54 ? integer_ : number_); // 5.4 integer; 5.2 and 5.3 float
            } else if (tag == 0x13) {
                skip(version_ == 0x54 ? number_ : integer_); // 5.4 float; 5.3 integer
            } else if (tag == 4 || tag == 0x14) {
                string();
            } else {
                ok_ = false;
            }
        }
    }

    void function(std::set<int> &out, int depth) {
        if (depth > 200) {
            ok_ = false;
            return;
        }
        if (version_ != 0x52) string(); // source
        int64_t line = integer();       // line defined
        integer();                      // last line defined
        byte();                         // parameters
        bool vararg = byte() != 0;
        byte(); // stack size
        skip(count() * instruction_);
        constants();
        if (version_ != 0x52) skip(count() * (version_ == 0x54 ? 3 : 2)); // upvalues
        for (uint64_t i = 0, n = count(); i < n && ok_; ++i)
            function(out, depth + 1);
        if (version_ == 0x52) {
            skip(count() * 2); // upvalues
            string();          // source
        }
        uint64_t lines = count();
        if (version_ == 0x54) {
            // Line deltas, with absolute lines where a delta does not fit (marked -128).
            size_t start = pos_;
            skip(lines);
            std::map<uint64_t, int64_t> absolute;
            for (uint64_t i = 0, n = count(); i < n && ok_; ++i) {
                uint64_t pc = varint();
                absolute[pc] = static_cast<int64_t>(varint());
            }
            for (uint64_t pc = 0; pc < lines && ok_; ++pc) {
                auto delta = static_cast<int8_t>(data_[start + pc]);
                line = delta == -128 ? absolute[pc] : line + delta;
                // A vararg function's first instruction adjusts its arguments; it has no line
                // a line hook reports.
                if (!(vararg && pc == 0) && line > 0) out.insert(static_cast<int>(line));
            }
        } else {
            for (uint64_t pc = 0; pc < lines && ok_; ++pc) {
                int64_t at = raw(int_);
                if (at > 0) out.insert(static_cast<int>(at));
            }
        }
        for (uint64_t i = 0, n = count(); i < n && ok_; ++i) { // local variables
            string();
            integer();
            integer();
        }
        for (uint64_t i = 0, n = count(); i < n && ok_; ++i) // upvalue names
            string();
    }
};

} // namespace

std::optional<std::set<int>> chunk_lines(std::string_view dump) {
    std::set<int> lines;
    if (!ChunkReader(dump).lines(lines)) return std::nullopt;
    return lines;
}

bool lcov_read(const std::string &file, Coverage &into) {
    std::ifstream in(file);
    if (!in) return false;
    std::string line;
    LineHits *current = nullptr;
    while (std::getline(in, line)) {
        if (line.rfind("SF:", 0) == 0) {
            current = &into[line.substr(3)];
        } else if (line.rfind("DA:", 0) == 0 && current != nullptr) {
            int number = 0;
            unsigned long long hits = 0;
            if (std::sscanf(line.c_str() + 3, "%d,%llu", &number, &hits) == 2 && number > 0)
                (*current)[number] += hits;
        } else if (line == "end_of_record") {
            current = nullptr;
        }
    }
    return true;
}

bool lcov_write(const std::string &file, const Coverage &coverage) {
    std::ostringstream out;
    for (const auto &[source, lines] : coverage) {
        size_t hit = 0;
        out << "TN:\nSF:" << source << "\n";
        for (const auto &[number, hits] : lines) {
            out << "DA:" << number << "," << hits << "\n";
            if (hits > 0) ++hit;
        }
        out << "LF:" << lines.size() << "\nLH:" << hit << "\nend_of_record\n";
    }
    std::string tmp = file + ".tmp";
    {
        std::ofstream f(tmp, std::ios::trunc);
        if (!f || !(f << out.str()) || !f.flush()) return false;
    }
    return std::rename(tmp.c_str(), file.c_str()) == 0;
}

} // namespace qavlua
