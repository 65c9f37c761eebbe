#include "app/kv3/Json.h"

#include <cmath>
#include <cstdio>

namespace kv3cli
{

void JsonWriter::separator()
{
    if (afterKey_)
    {
        afterKey_ = false;
        return;
    }
    if (!first_.empty())
    {
        if (!first_.back())
            out_ += ',';
        first_.back() = false;
    }
}

JsonWriter& JsonWriter::beginObject()
{
    separator();
    out_ += '{';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::endObject()
{
    out_ += '}';
    first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::beginArray()
{
    separator();
    out_ += '[';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::endArray()
{
    out_ += ']';
    first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name)
{
    separator();
    out_ += quote(name);
    out_ += ':';
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view text)
{
    separator();
    out_ += quote(text);
    return *this;
}

JsonWriter& JsonWriter::value(bool b)
{
    separator();
    out_ += b ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::value(std::int64_t n)
{
    separator();
    out_ += std::to_string(n);
    return *this;
}

JsonWriter& JsonWriter::value(double x)
{
    if (!std::isfinite(x))
        return null(); // JSON has no NaN or infinity
    separator();
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", x);
    out_ += buf;
    return *this;
}

JsonWriter& JsonWriter::null()
{
    separator();
    out_ += "null";
    return *this;
}

std::string JsonWriter::quote(std::string_view text)
{
    std::string q = "\"";
    for (unsigned char c : text)
    {
        switch (c)
        {
        case '"':
            q += "\\\"";
            break;
        case '\\':
            q += "\\\\";
            break;
        case '\n':
            q += "\\n";
            break;
        case '\r':
            q += "\\r";
            break;
        case '\t':
            q += "\\t";
            break;
        default:
            if (c < 0x20)
            {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                q += buf;
            }
            else
                q += static_cast<char>(c);
        }
    }
    q += '"';
    return q;
}

} // namespace kv3cli
