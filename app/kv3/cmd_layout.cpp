// kv3 layout show / write: loads a layout through the framework's loader and factory, without a
// window, and prints the tree or writes it back with the flat writer.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "app/kv3/ResourceArgs.h"
#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 layout show [--json] [--size W,H] (--pack PACK | --folder DIR) NAME\n"
    "       kv3 layout write (--pack PACK | --folder DIR) NAME OUT\n"
    "\n"
    "NAME is a file name below layouts/ (main.xml) or the four-letter name of a layout's root.\n"
    "show   prints the tree as loaded, one object a line, indented by depth: name, kind,\n"
    "       frame l,t,r,b, visibility, text, design size and the attributes as read. --size\n"
    "       lays the root out to W,H first. --json prints {\"name\", \"kind\", \"frame\",\n"
    "       \"visible\", \"text\", \"attributes\": {code: value}, \"designRect\", \"children\"}.\n"
    "write  writes the loaded tree back to OUT with the flat writer: the root and its\n"
    "       children, each child's own children left out.\n";

/** An application that is started for its services and never runs a loop. */
class LayoutApp : public epiWindowApplication
{
};

std::string escaped(const std::string& text)
{
    return kv3cli::escapedText(text, true);
}

std::string rectText(const epiRect& r)
{
    char text[64];
    std::snprintf(text, sizeof text, "%d,%d,%d,%d", r.left_, r.top_, r.right_, r.bottom_);
    return text;
}

void writeRect(kv3cli::JsonWriter& w, const epiRect& r)
{
    w.beginArray().value(r.left_).value(r.top_).value(r.right_).value(r.bottom_).endArray();
}

void printTree(epiUbo& object, int depth)
{
    std::cout << std::string(size_t(depth) * 2, ' ') << std::string(epiCodeText(object.name())) << ' '
              << std::string(epiCodeText(object.kind())) << " frame=" << rectText(object.frame())
              << " visible=" << (object.isVisible() ? "yes" : "no") << " text=\"" << escaped(object.text())
              << "\" design=" << rectText(object.designRect());
    for (const auto& [code, value] : object.attributesRead())
        std::cout << ' ' << std::string(epiCodeText(code)) << "=\"" << escaped(value) << '"';
    std::cout << '\n';
    for (epiUbo* child : object.children())
        printTree(*child, depth + 1);
}

void writeTree(kv3cli::JsonWriter& w, epiUbo& object)
{
    w.beginObject();
    w.key("name").value(kv3cli::codeText(object.name()));
    w.key("kind").value(kv3cli::codeText(object.kind()));
    w.key("frame");
    writeRect(w, object.frame());
    w.key("visible").value(object.isVisible());
    w.key("text").value(std::string_view(object.text()));
    w.key("attributes").beginObject();
    for (const auto& [code, value] : object.attributesRead())
        w.key(kv3cli::codeText(code)).value(std::string_view(value));
    w.endObject();
    w.key("designRect");
    writeRect(w, object.designRect());
    w.key("children").beginArray();
    for (epiUbo* child : object.children())
        writeTree(w, *child);
    w.endArray().endObject();
}

int run(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (const std::optional<int> done =
            kv3cli::parseResourceCommand(argv, "layout", args, {"size"}, {"json"}, {"show", "write"}, {1, 2}))
        return *done;
    const std::vector<std::string>& words = args.positional();
    const bool show = words[0] == "show";
    if (!show && (args.has("size") || args.flag("json")))
        return kv3cli::usageError("layout", "--size and --json belong to show");

    int32_t width = 0;
    int32_t height = 0;
    if (const std::optional<std::string> size = args.value("size"))
    {
        const size_t comma = size->find(',');
        const std::optional<std::int64_t> w =
            comma == std::string::npos ? std::nullopt
                                       : kv3cli::parseInt(std::string_view(*size).substr(0, comma));
        const std::optional<std::int64_t> h =
            comma == std::string::npos ? std::nullopt
                                       : kv3cli::parseInt(std::string_view(*size).substr(comma + 1));
        if (!w || !h || *w < 0 || *h < 0 || *w > 100000 || *h > 100000)
            return kv3cli::usageError("layout", "--size wants W,H in pixels, not '" + *size + "'");
        width = int32_t(*w);
        height = int32_t(*h);
    }

    LayoutApp app;
    if (!app.start() || app.resources() == nullptr)
        return kv3cli::fail("cannot start the interface framework");
    struct Stopper
    {
        LayoutApp& app;
        ~Stopper() { app.stop(); }
    } stopper{app};
    if (const int status = kv3cli::openResourceMedium(args, "layout", *app.resources());
        status != kv3cli::kOk)
        return status;

    // A file name first; a name that no file has may be the name of a layout's root.
    epiText name;
    epiText text;
    if (!kv3cli::findResourceByWord(*app.resources(), epiCode("laya"), words[1], name) ||
        !app.readLayoutText(name, text))
        return kv3cli::fail("no layout '" + words[1] +
                            "': neither a file below layouts/ nor a layout's name");
    const epiXmlChunk content = epiXmlChunk(text).child("epi").child("content");
    if (content.isEmpty())
    {
        std::string message = "'";
        message += name;
        message += "' is not a layout: it has no epi/content";
        return kv3cli::fail(message);
    }

    // The root is made as the kind the file names; one that can't hold children becomes a container.
    const uint32_t rootKind = content.child("kind").text().code();
    epiObject* made = app.newObject(epiCode("GrUi"), rootKind, epiLayoutCode(content.child("name")));
    auto* root = dynamic_cast<epiUbo*>(made);
    if (root == nullptr || !root->vetoChild())
    {
        delete made;
        root = new epiUiContainer();
    }
    root->startRefCount();
    root->start();
    root->setOwner(&app);
    root->loadLayoutText(text);
    if (args.has("size"))
    {
        root->setSize(width, height);
        root->relayout();
    }

    int status = kv3cli::kOk;
    if (show && args.flag("json"))
    {
        kv3cli::JsonWriter w;
        writeTree(w, *root);
        std::cout << w.str() << '\n';
    }
    else if (show)
    {
        printTree(*root, 0);
    }
    else
    {
        epiText written;
        epiWriteLayoutFile(*root, written);
        const std::string out = words[2];
        const std::string temporary = out + ".part";
        {
            std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
            file.write(written.data(), std::streamsize(written.size()));
            file.close();
            if (!file)
            {
                std::remove(temporary.c_str());
                status = kv3cli::fail("cannot write '" + out + "'");
            }
        }
        if (status == kv3cli::kOk && std::rename(temporary.c_str(), out.c_str()) != 0)
        {
            std::remove(temporary.c_str());
            status = kv3cli::fail("cannot write '" + out + "'");
        }
    }
    root->stop();
    return status;
}

kv3cli::Register reg{
    kv3cli::Command{"layout", "show or write back a layout as the program loads it", kUsage, run}};

} // namespace
