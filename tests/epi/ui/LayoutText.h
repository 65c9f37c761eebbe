#pragma once

// Layout files written as text by the tests.

#include <string>
#include <utility>
#include <vector>

/** A layout file: a root of `rootBody` (kind, name, text, position, size, attributes) with `items`. */
inline std::string layoutFile(const std::string& rootBody, const std::string& items)
{
    return "<?xml version=\"1.0\"?>\n<epi><version>4</version><signature>layout</signature>\n<content>" +
           rootBody + "<itemslist>" + items + "</itemslist></content></epi>\n";
}

/** An <item> of a layout. */
inline std::string item(const std::string& kind, const std::string& name, const std::string& body = "")
{
    return "<item><kind>" + kind + "</kind><name>" + name + "</name>" + body + "</item>";
}

/** An <attributes> list from (code, value) pairs. */
inline std::string attrs(const std::vector<std::pair<std::string, std::string>>& list)
{
    std::string text = "<attributes>";
    for (const auto& [code, value] : list)
        text += "<attribute><name>" + code + "</name><value>" + value + "</value></attribute>";
    return text + "</attributes>";
}

/** A `<position>` and `<size>` pair. */
inline std::string place(int x, int y, int w, int h)
{
    return "<position>" + std::to_string(x) + "," + std::to_string(y) + "</position><size>" +
           std::to_string(w) + "," + std::to_string(h) + "</size>";
}
