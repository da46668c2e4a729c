// qavlua check: reads each script as Lua tokens and follows the ways a script reaches the library
// (the global libqavluacommon, the result of require "libqavluacommon", local aliases of either
// and local aliases of its functions) and the zakhost module (require "zakhost" and its aliases).
// A call through them is checked against the catalogue: the function must exist and, for the
// library, the argument count must lie within what the function takes. The aliases are followed
// in file order without block scopes: a later local of the same name ends an alias.
#include "check.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "qavlua_check_table.inc"

namespace {

struct LibraryFunction {
    const char *name;
    int min;
    int max; // -1: any number
};
const LibraryFunction kLibrary[] = {QAVLUA_CHECK_LIBRARY};
const char *const kZakhost[] = {QAVLUA_CHECK_ZAKHOST};

const LibraryFunction *find_library(const std::string &name) {
    for (const auto &f : kLibrary)
        if (name == f.name) return &f;
    return nullptr;
}

bool is_zakhost(const std::string &name) {
    for (const char *f : kZakhost)
        if (name == f) return true;
    return false;
}

// ---- Tokens -----------------------------------------------------------------------------------

enum class Kind { Name, String, Number, Op, End };

struct Token {
    Kind kind;
    std::string text; // a string's contents, else the token as written
    int line;
};

bool is_name_start(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool is_name_char(char c) {
    return is_name_start(c) || (c >= '0' && c <= '9');
}

// The level of a long bracket opening at text[at] ("[[" 0, "[=[" 1, ...), or -1.
int long_bracket(const std::string &text, size_t at) {
    if (at >= text.size() || text[at] != '[') return -1;
    size_t i = at + 1;
    while (i < text.size() && text[i] == '=')
        ++i;
    return i < text.size() && text[i] == '[' ? static_cast<int>(i - at - 1) : -1;
}

class Lexer {
  public:
    explicit Lexer(const std::string &text) : text_(text) {}

    // The tokens of the text; false for a text Lua would not read (the loader reports why).
    bool run(std::vector<Token> *tokens) {
        while (skip_space_and_comments()) {
            char c = text_[pos_];
            int line = line_;
            if (is_name_start(c)) {
                size_t start = pos_;
                while (pos_ < text_.size() && is_name_char(text_[pos_]))
                    ++pos_;
                tokens->push_back({Kind::Name, text_.substr(start, pos_ - start), line});
            } else if ((c >= '0' && c <= '9') ||
                       (c == '.' && pos_ + 1 < text_.size() &&
                        std::isdigit(static_cast<unsigned char>(text_[pos_ + 1])))) {
                tokens->push_back({Kind::Number, number(), line});
            } else if (c == '"' || c == '\'') {
                std::string value;
                if (!quoted(&value)) return false;
                tokens->push_back({Kind::String, value, line});
            } else if (long_bracket(text_, pos_) >= 0) {
                std::string value;
                if (!long_string(&value)) return false;
                tokens->push_back({Kind::String, value, line});
            } else {
                tokens->push_back({Kind::Op, op(), line});
            }
        }
        tokens->push_back({Kind::End, "", line_});
        return true;
    }

  private:
    bool skip_space_and_comments() {
        while (pos_ < text_.size()) {
            char c = text_[pos_];
            if (c == '\n') {
                ++line_;
                ++pos_;
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
                ++pos_;
            } else if (c == '#' && pos_ == 0) { // a first line "#!..."
                while (pos_ < text_.size() && text_[pos_] != '\n')
                    ++pos_;
            } else if (text_.compare(pos_, 2, "--") == 0) {
                pos_ += 2;
                std::string ignored;
                if (long_bracket(text_, pos_) >= 0) {
                    if (!long_string(&ignored)) return false;
                } else {
                    while (pos_ < text_.size() && text_[pos_] != '\n')
                        ++pos_;
                }
            } else {
                return true;
            }
        }
        return false;
    }

    std::string number() {
        size_t start = pos_;
        bool hex = text_.compare(pos_, 2, "0x") == 0 || text_.compare(pos_, 2, "0X") == 0;
        if (hex) pos_ += 2;
        while (pos_ < text_.size()) {
            char c = text_[pos_];
            char lower = static_cast<char>(c | 0x20);
            bool exponent = hex ? lower == 'p' : lower == 'e';
            if (exponent && pos_ + 1 < text_.size() && (text_[pos_ + 1] == '+' || text_[pos_ + 1] == '-'))
                pos_ += 2;
            else if (is_name_char(c) || c == '.')
                ++pos_;
            else
                break;
        }
        return text_.substr(start, pos_ - start);
    }

    bool quoted(std::string *value) {
        char quote = text_[pos_++];
        while (pos_ < text_.size() && text_[pos_] != quote) {
            char c = text_[pos_++];
            if (c == '\n') return false;
            if (c == '\\' && pos_ < text_.size()) {
                char e = text_[pos_++];
                if (e == '\n') ++line_;
                if (e == 'z') { // skips the following white space, line ends included
                    while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_])))
                        line_ += text_[pos_++] == '\n' ? 1 : 0;
                }
                *value += e == 'n' ? '\n' : e == 't' ? '\t' : e;
            } else {
                *value += c;
            }
        }
        if (pos_ >= text_.size()) return false;
        ++pos_;
        return true;
    }

    bool long_string(std::string *value) {
        int level = long_bracket(text_, pos_);
        std::string close = "]" + std::string(static_cast<size_t>(level), '=') + "]";
        pos_ += static_cast<size_t>(level) + 2;
        size_t end = text_.find(close, pos_);
        if (end == std::string::npos) return false;
        *value = text_.substr(pos_, end - pos_);
        for (char c : *value)
            line_ += c == '\n' ? 1 : 0;
        pos_ = end + close.size();
        return true;
    }

    std::string op() {
        static const char *const kLong[] = {"...", "..", "==", "~=", "<=", ">=", "//", "::", "<<", ">>"};
        for (const char *o : kLong) {
            if (text_.compare(pos_, std::strlen(o), o) == 0) {
                pos_ += std::strlen(o);
                return o;
            }
        }
        return std::string(1, text_[pos_++]);
    }

    const std::string &text_;
    size_t pos_ = 0;
    int line_ = 1;
};

// ---- The check --------------------------------------------------------------------------------

enum class Target { Library, Zakhost, LibraryFunction };

struct Alias {
    Target target;
    std::string function; // for LibraryFunction
};

class FileCheck {
  public:
    FileCheck(const std::string &file, std::vector<Token> tokens) : file_(file), t_(std::move(tokens)) {}

    int run() {
        for (size_t i = 0; i < t_.size(); ++i) {
            if (is("local", i) && is("function", i + 1)) {
                aliases_.erase(t_[i + 2].text);
            } else if (is("local", i)) {
                // local a, b, c [= ...]: only a single name can become an alias.
                size_t last = i + 1;
                while (is_op(",", last + 1) && t_[last + 2].kind == Kind::Name)
                    last += 2;
                if (last == i + 1 && t_[last].kind == Kind::Name) {
                    define(last);
                } else {
                    for (size_t k = i + 1; k <= last; k += 2)
                        aliases_.erase(t_[k].text);
                }
            } else if (t_[i].kind == Kind::Name && is_op("=", i + 1) && aliases_.count(t_[i].text) &&
                       (i == 0 || !(is_op(".", i - 1) || is_op(":", i - 1) || is_op("{", i - 1) ||
                                    is_op(",", i - 1)))) {
                define(i); // an alias given another value (a table field of that name is not one)
            } else {
                check_use(i);
            }
        }
        return findings_;
    }

  private:
    bool is(const char *name, size_t i) const {
        return i < t_.size() && t_[i].kind == Kind::Name && t_[i].text == name;
    }
    bool is_op(const char *op, size_t i) const {
        return i < t_.size() && t_[i].kind == Kind::Op && t_[i].text == op;
    }

    void report(int line, const std::string &message) {
        std::printf("%s:%d: %s\n", file_.c_str(), line, message.c_str());
        ++findings_;
    }

    // The module that the expression starting at i names, and the index after it: the global
    // libqavluacommon, an alias, or require "libqavluacommon" / require("zakhost") / (require ...).
    std::optional<std::pair<Target, size_t>> module_at(size_t i) const {
        if (i > 0 && (is_op(".", i - 1) || is_op(":", i - 1))) return std::nullopt;
        if (t_[i].kind != Kind::Name && !is_op("(", i)) return std::nullopt;
        if (auto a = aliases_.find(t_[i].text); t_[i].kind == Kind::Name && a != aliases_.end()) {
            if (a->second.target == Target::LibraryFunction) return std::nullopt;
            return std::make_pair(a->second.target, i + 1);
        }
        if (is("libqavluacommon", i)) return std::make_pair(Target::Library, i + 1);
        size_t at = i;
        bool wrapped = is_op("(", at) && is("require", at + 1);
        if (wrapped) ++at;
        if (!is("require", at)) return std::nullopt;
        size_t name = at + 1;
        bool parens = is_op("(", name);
        if (parens) ++name;
        if (t_[name].kind != Kind::String) return std::nullopt;
        size_t end = name + 1;
        if (parens && !is_op(")", end++)) return std::nullopt;
        if (wrapped && !is_op(")", end++)) return std::nullopt;
        if (t_[name].text == "libqavluacommon") return std::make_pair(Target::Library, end);
        if (t_[name].text == "zakhost") return std::make_pair(Target::Zakhost, end);
        return std::nullopt;
    }

    // `<module> . name` (or `<module>["name"]`) starting at i: the name, its line and the index
    // after it.
    struct Field {
        Target module;
        std::string name;
        int line;
        size_t next;
        bool method;
    };
    std::optional<Field> field_at(size_t i) const {
        auto module = module_at(i);
        if (!module) return std::nullopt;
        size_t at = module->second;
        if ((is_op(".", at) || is_op(":", at)) && t_[at + 1].kind == Kind::Name)
            return Field{module->first, t_[at + 1].text, t_[at + 1].line, at + 2, is_op(":", at)};
        if (is_op("[", at) && t_[at + 1].kind == Kind::String && is_op("]", at + 2))
            return Field{module->first, t_[at + 1].text, t_[at + 1].line, at + 3, false};
        return std::nullopt;
    }

    // What `local name = ...` (or `name = ...`) at i makes the name: an alias of a module or of
    // a library function, or nothing.
    void define(size_t i) {
        std::string name = t_[i].text;
        aliases_.erase(name);
        size_t equals = i + 1;
        if (is_op("<", equals) && is_op(">", equals + 2)) equals += 3; // local m <const> = ...
        if (!is_op("=", equals)) return;
        size_t value = equals + 1;
        if (auto field = field_at(value);
            field && field->module == Target::Library && !is_call(field->next)) {
            aliases_[name] = {Target::LibraryFunction, field->name};
            return;
        }
        if (auto module = module_at(value); module && ends_expression(module->second))
            aliases_[name] = {module->first, ""};
    }

    bool ends_expression(size_t i) const {
        return !(is_op(".", i) || is_op(":", i) || is_op("[", i) || is_call(i) || is_op("..", i) ||
                 is_op(",", i));
    }

    bool is_call(size_t i) const { return is_op("(", i) || is_op("{", i) || t_[i].kind == Kind::String; }

    void check_known(const Field &field) {
        if (field.module == Target::Library && find_library(field.name) == nullptr)
            report(field.line, "unknown library function libqavluacommon." + field.name);
        if (field.module == Target::Zakhost && !is_zakhost(field.name))
            report(field.line, "unknown zakhost function zakhost." + field.name);
    }

    void check_use(size_t i) {
        if (auto field = field_at(i)) {
            if (is_op("=", field->next)) return; // the script stores a field of its own
            check_known(*field);
            if (field->module == Target::Library && is_call(field->next))
                check_count(field->name, field->line, field->next, field->method ? 1 : 0);
            return;
        }
        if (t_[i].kind != Kind::Name || (i > 0 && (is_op(".", i - 1) || is_op(":", i - 1)))) return;
        auto a = aliases_.find(t_[i].text);
        if (a != aliases_.end() && a->second.target == Target::LibraryFunction && is_call(i + 1))
            check_count(a->second.function, t_[i].line, i + 1, 0);
    }

    // The index of the bracket that closes the one at i.
    size_t closing(size_t i) const {
        int depth = 0;
        for (size_t k = i; k < t_.size(); ++k) {
            if (t_[k].kind != Kind::Op) continue;
            const std::string &o = t_[k].text;
            if (o == "(" || o == "{" || o == "[") ++depth;
            if ((o == ")" || o == "}" || o == "]") && --depth == 0) return k;
        }
        return t_.size() - 1;
    }
    size_t opening(size_t i) const {
        int depth = 0;
        for (size_t k = i + 1; k-- > 0;) {
            if (t_[k].kind != Kind::Op) continue;
            const std::string &o = t_[k].text;
            if (o == ")" || o == "}" || o == "]") ++depth;
            if ((o == "(" || o == "{" || o == "[") && --depth == 0) return k;
        }
        return 0;
    }

    // Whether the expression from `first` to `last` is a call or "...", whose values extend the
    // argument list: a chain of names, fields, indexes and calls that ends in a call, with no
    // operator outside brackets (`a .. f()` is one value).
    bool expands(size_t first, size_t last) const {
        if (first == last && is_op("...", first)) return true;
        int depth = 0;
        for (size_t k = first; k <= last; ++k) {
            const Token &tk = t_[k];
            if (tk.kind == Kind::Op) {
                const std::string &o = tk.text;
                if (o == "(" || o == "{" || o == "[") {
                    ++depth;
                } else if (o == ")" || o == "}" || o == "]") {
                    --depth;
                } else if (depth == 0 && o != "." && o != ":") {
                    return false;
                }
            } else if (depth == 0 && tk.kind == Kind::Name &&
                       (tk.text == "and" || tk.text == "or" || tk.text == "not" || tk.text == "function")) {
                return false;
            }
        }
        size_t head = last;
        if (is_op(")", last) || is_op("}", last)) head = opening(last);
        if (head <= first) return false;
        const Token &before = t_[head - 1];
        return before.kind == Kind::Name || before.kind == Kind::String || is_op(")", head - 1) ||
               is_op("]", head - 1);
    }

    void check_count(const std::string &name, int line, size_t args, int extra) {
        const LibraryFunction *f = find_library(name);
        if (f == nullptr) return;
        int count = 1;
        bool open = false;
        if (is_op("(", args)) {
            size_t close = closing(args);
            count = 0;
            size_t start = args + 1;
            int depth = 0;
            for (size_t k = args + 1; k <= close; ++k) {
                bool top = depth == 0;
                if (t_[k].kind == Kind::Op) {
                    const std::string &o = t_[k].text;
                    if (o == "(" || o == "{" || o == "[") ++depth;
                    if (o == ")" || o == "}" || o == "]") --depth;
                }
                if (top && (k == close || is_op(",", k))) {
                    if (k > start) {
                        ++count;
                        open = k == close && expands(start, k - 1);
                    }
                    start = k + 1;
                }
            }
        }
        count += extra;
        int least = open ? count - 1 : count;
        std::string takes = describe(*f);
        if (f->max >= 0 && least > f->max)
            report(line, name + " takes " + takes + ", called with " + std::to_string(least) +
                             (open ? " or more" : ""));
        else if (!open && count < f->min)
            report(line, name + " takes " + takes + ", called with " + std::to_string(count));
    }

    static std::string describe(const LibraryFunction &f) {
        auto plural = [](int n) { return std::to_string(n) + (n == 1 ? " argument" : " arguments"); };
        if (f.max < 0) return "at least " + plural(f.min);
        if (f.min == f.max) return plural(f.min);
        return std::to_string(f.min) + " to " + plural(f.max);
    }

    std::string file_;
    std::vector<Token> t_;
    std::map<std::string, Alias> aliases_;
    int findings_ = 0;
};

} // namespace

int qavlua_check(const std::vector<std::string> &files) {
    if (files.empty()) {
        std::fprintf(stderr, "usage: qavlua check FILE.lua...\n");
        return 2;
    }
    int findings = 0;
    bool unreadable = false;
    for (const auto &file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "qavlua check: cannot read %s\n", file.c_str());
            unreadable = true;
            continue;
        }
        std::stringstream text;
        text << in.rdbuf();
        // Lua's own loader reports what it cannot read, with the line.
        lua_State *state = luaL_newstate();
        if (state != nullptr && luaL_loadfile(state, file.c_str()) != LUA_OK) {
            std::printf("%s\n", lua_tostring(state, -1));
            ++findings;
            lua_close(state);
            continue;
        }
        if (state != nullptr) lua_close(state);
        std::string source = text.str();
        std::vector<Token> tokens;
        if (!Lexer(source).run(&tokens)) continue; // (the loader has accepted it: nothing to add)
        findings += FileCheck(file, std::move(tokens)).run();
    }
    if (unreadable) return 2;
    std::fprintf(stderr, "qavlua check: %zu file%s, %d finding%s\n", files.size(),
                 files.size() == 1 ? "" : "s", findings, findings == 1 ? "" : "s");
    return findings == 0 ? 0 : 1;
}
