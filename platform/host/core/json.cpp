// A small JSON value for the structured logs (events, stamps).
#include <cmath>
#include <cstdio>

#include "host.h"

namespace zakhost {

Json::Json() = default;
Json::Json(const Json &) = default;
Json::Json(Json &&) noexcept = default;
Json &Json::operator=(const Json &) = default;
Json &Json::operator=(Json &&) noexcept = default;
Json::~Json() = default;

Json Json::of(bool v) {
    Json j;
    j.kind = Kind::Bool;
    j.boolean = v;
    return j;
}
Json Json::of(double v) {
    Json j;
    j.kind = Kind::Number;
    j.number = v;
    return j;
}
Json Json::of(int64_t v) {
    return of(static_cast<double>(v));
}
Json Json::of(std::string v) {
    Json j;
    j.kind = Kind::String;
    j.text = std::move(v);
    return j;
}
Json Json::array() {
    Json j;
    j.kind = Kind::Array;
    return j;
}
Json Json::object() {
    Json j;
    j.kind = Kind::Object;
    return j;
}
Json &Json::set(std::string key, Json value) {
    for (auto &f : fields) {
        if (f.first == key) {
            f.second = std::move(value);
            return *this;
        }
    }
    fields.emplace_back(std::move(key), std::move(value));
    return *this;
}
Json &Json::push(Json value) {
    items.push_back(std::move(value));
    return *this;
}

namespace {

void dump_string(std::string &out, const std::string &text) {
    out += '"';
    for (unsigned char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
}

void dump_into(std::string &out, const Json &j) {
    switch (j.kind) {
    case Json::Kind::Null:
        out += "null";
        break;
    case Json::Kind::Bool:
        out += j.boolean ? "true" : "false";
        break;
    case Json::Kind::Number: {
        char buf[32];
        if (std::isfinite(j.number) && j.number == std::trunc(j.number) && std::fabs(j.number) < 1e18)
            std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(j.number));
        else if (std::isfinite(j.number))
            std::snprintf(buf, sizeof buf, "%.17g", j.number);
        else
            std::snprintf(buf, sizeof buf, "null");
        out += buf;
        break;
    }
    case Json::Kind::String:
        dump_string(out, j.text);
        break;
    case Json::Kind::Array:
        out += '[';
        for (size_t i = 0; i < j.items.size(); ++i) {
            if (i) out += ',';
            dump_into(out, j.items[i]);
        }
        out += ']';
        break;
    case Json::Kind::Object:
        out += '{';
        for (size_t i = 0; i < j.fields.size(); ++i) {
            if (i) out += ',';
            dump_string(out, j.fields[i].first);
            out += ':';
            dump_into(out, j.fields[i].second);
        }
        out += '}';
        break;
    }
}

} // namespace

std::string Json::dump() const {
    std::string out;
    dump_into(out, *this);
    return out;
}

void Json::push_lua(lua_State *state) const {
    switch (kind) {
    case Kind::Null:
        lua_pushnil(state);
        break;
    case Kind::Bool:
        lua_pushboolean(state, boolean);
        break;
    case Kind::Number:
#if LUA_VERSION_NUM >= 503
        if (number == std::trunc(number) && std::fabs(number) < 9.2e18)
            lua_pushinteger(state, static_cast<lua_Integer>(number));
        else
#endif
            lua_pushnumber(state, number);
        break;
    case Kind::String:
        lua_pushlstring(state, text.data(), text.size());
        break;
    case Kind::Array:
        lua_createtable(state, static_cast<int>(items.size()), 0);
        for (size_t i = 0; i < items.size(); ++i) {
            items[i].push_lua(state);
            lua_rawseti(state, -2, static_cast<int>(i + 1));
        }
        break;
    case Kind::Object:
        lua_createtable(state, 0, static_cast<int>(fields.size()));
        for (const auto &f : fields) {
            f.second.push_lua(state);
            lua_setfield(state, -2, f.first.c_str());
        }
        break;
    }
}

} // namespace zakhost
