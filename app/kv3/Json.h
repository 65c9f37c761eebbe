#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kv3cli
{

/**
 * A small streaming JSON writer for `--json` output. Values are appended in document order;
 * commas and nesting are tracked here, so callers only open, write and close.
 */
class JsonWriter
{
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    /** The key of the next value inside an object. */
    JsonWriter& key(std::string_view name);

    JsonWriter& value(std::string_view text);
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& value(const std::string& text) { return value(std::string_view(text)); }
    JsonWriter& value(bool b);
    JsonWriter& value(std::int64_t n);
    JsonWriter& value(int n) { return value(static_cast<std::int64_t>(n)); }
    JsonWriter& value(double x);
    JsonWriter& null();

    /** The document so far. */
    const std::string& str() const { return out_; }

    /** Quotes and escapes a text as a JSON string (control characters as \u00XX). */
    static std::string quote(std::string_view text);

private:
    void separator();

    std::string out_;
    std::vector<bool> first_; // per open container: nothing written into it yet
    bool afterKey_ = false;
};

} // namespace kv3cli
