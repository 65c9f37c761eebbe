// Draws every image of the program's interface into OUTDIR (the pack's "images/" folder): the main
// panel's background film, the state images of its buttons, checks, radios and faders, the preview's
// markers, the file list's rows, lights, the busy meter, the click popup, the two backdrops of the
// effect area and the program's icon.
//
// The look is a dark amplifier panel with light printed labels; displays are amber on near black,
// and the waveform preview sits on a light neutral where both wave colours read. Text is drawn with
// the DejaVu faces opened by path through FreeType, never looked up through the system's font
// configuration. The output is a function of this file, the font files and the libraries: noise
// comes from fixed seeds, and nothing reads the time or the locale.
//
// Usage: artgen [--fonts DIR] OUTDIR
//        artgen --geometry     prints the main panel's controls, "name x y w h images"
//        artgen --preview OUTDIR FILE   composes the panel from OUTDIR's images into FILE, with a few
//                                       controls on, to look at

#include <cairo-ft.h>
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/artgen/PanelGeometry.h"
#include "tools/artkit/ArtKit.h"

namespace
{

constexpr double kPi = 3.14159265358979323846;

struct Colour
{
    double r, g, b, a = 1.0;
};

Colour rgb(int r, int g, int b, double a = 1.0)
{
    return {r / 255.0, g / 255.0, b / 255.0, a};
}

// The palette of the whole interface.
const Colour kPanelTop = rgb(44, 45, 48);
const Colour kPanelBottom = rgb(26, 27, 29);
const Colour kLabel = rgb(196, 192, 180);
const Colour kLabelDim = rgb(120, 118, 112);
const Colour kLcd = rgb(12, 10, 8);
const Colour kAmber = rgb(255, 174, 36);
const Colour kPreview = rgb(222, 220, 214);
const Colour kRuler = rgb(206, 203, 195);
const Colour kRed = rgb(236, 52, 40);
const Colour kGreen = rgb(64, 220, 96);
const Colour kYellow = rgb(240, 212, 48);
const Colour kBlue = rgb(72, 156, 240);

/** A small deterministic noise source (xorshift) for the panel's grain. */
class Noise
{
public:
    explicit Noise(std::uint32_t seed) : state_(seed) {}
    double next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<double>(state_) / 4294967296.0;
    }

private:
    std::uint32_t state_;
};

/** The faces text is drawn with, made into cairo faces once. */
struct Faces
{
    cairo_font_face_t* sans = nullptr;
    cairo_font_face_t* bold = nullptr;
    cairo_font_face_t* mono = nullptr;
};
Faces gFaces;

/** A drawing of a given size, written out as a PNG. */
class Canvas
{
public:
    Canvas(int w, int h)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h)), cr_(cairo_create(surface_))
    {
        cairo_font_options_t* options = cairo_font_options_create();
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_SLIGHT);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        cairo_set_font_options(cr_, options);
        cairo_font_options_destroy(options);
    }
    ~Canvas()
    {
        cairo_destroy(cr_);
        cairo_surface_destroy(surface_);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    cairo_t* cr() { return cr_; }
    cairo_surface_t* surface() { return surface_; }
    int width() const { return cairo_image_surface_get_width(surface_); }
    int height() const { return cairo_image_surface_get_height(surface_); }

    /** Converts cairo's premultiplied pixels to plain RGBA and writes them. */
    bool save(const std::string& path, std::string& error)
    {
        cairo_surface_flush(surface_);
        const int w = width(), h = height(), stride = cairo_image_surface_get_stride(surface_);
        const unsigned char* data = cairo_image_surface_get_data(surface_);
        artkit::Rgba out(w, h);
        for (int y = 0; y < h; ++y)
        {
            for (int x = 0; x < w; ++x)
            {
                std::uint32_t p;
                std::memcpy(&p, data + y * stride + x * 4, 4);
                const unsigned a = p >> 24;
                std::uint8_t* o = out.at(x, y);
                if (a == 0)
                    continue;
                o[0] = static_cast<std::uint8_t>((((p >> 16) & 0xFF) * 255 + a / 2) / a);
                o[1] = static_cast<std::uint8_t>((((p >> 8) & 0xFF) * 255 + a / 2) / a);
                o[2] = static_cast<std::uint8_t>(((p & 0xFF) * 255 + a / 2) / a);
                o[3] = static_cast<std::uint8_t>(a);
            }
        }
        return artkit::writePng(path, out, error);
    }

private:
    cairo_surface_t* surface_;
    cairo_t* cr_;
};

void setColour(cairo_t* cr, const Colour& c)
{
    cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a);
}

void roundRect(cairo_t* cr, double x, double y, double w, double h, double r)
{
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -kPi / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, kPi / 2);
    cairo_arc(cr, x + r, y + h - r, r, kPi / 2, kPi);
    cairo_arc(cr, x + r, y + r, r, kPi, 3 * kPi / 2);
    cairo_close_path(cr);
}

void fillVertical(cairo_t* cr, double y0, double y1, const Colour& top, const Colour& bottom)
{
    cairo_pattern_t* p = cairo_pattern_create_linear(0, y0, 0, y1);
    cairo_pattern_add_color_stop_rgba(p, 0, top.r, top.g, top.b, top.a);
    cairo_pattern_add_color_stop_rgba(p, 1, bottom.r, bottom.g, bottom.b, bottom.a);
    cairo_set_source(cr, p);
    cairo_fill(cr);
    cairo_pattern_destroy(p);
}

using panel::Align;

/** Draws `text` (UTF-8) with its baseline at `y`, aligned on `x`. */
void text(cairo_t* cr, cairo_font_face_t* face, double size, const Colour& c, double x, double y, Align align,
          const std::string& s)
{
    cairo_set_font_face(cr, face);
    cairo_set_font_size(cr, size);
    cairo_text_extents_t e;
    cairo_text_extents(cr, s.c_str(), &e);
    double left = x;
    if (align == Align::Centre)
        left = x - e.x_advance / 2;
    else if (align == Align::Right)
        left = x - e.x_advance;
    cairo_move_to(cr, std::round(left), y);
    setColour(cr, c);
    cairo_show_text(cr, s.c_str());
    cairo_new_path(cr);
}

/** A printed panel label, small bold capitals. */
void label(cairo_t* cr, double x, double y, Align align, const std::string& s, const Colour& c = kLabel)
{
    text(cr, gFaces.bold, 6.5, c, x, y, align, s);
}

/** A recessed display window: a near-black glass in a thin bevel. */
void lcdWell(cairo_t* cr, double x, double y, double w, double h, const Colour& glass = kLcd)
{
    roundRect(cr, x - 1.5, y - 1.5, w + 3, h + 3, 2.5);
    fillVertical(cr, y - 1.5, y + h + 1.5, rgb(8, 8, 9), rgb(82, 82, 86));
    cairo_rectangle(cr, x, y, w, h);
    setColour(cr, glass);
    cairo_fill(cr);
}

/** The groove a fader's cap runs in, with scale ticks on both sides. */
void faderSlot(cairo_t* cr, const panel::Control& c, bool scale)
{
    const bool vertical = c.w < c.h;
    if (vertical && !scale)
    {
        roundRect(cr, c.x + 1, c.y, c.w - 2, c.h, 3);
    }
    else if (vertical)
    {
        const double cx = c.x + c.w / 2.0;
        for (int i = 0; i <= 10; ++i)
        {
            const double ty = std::round(c.y + 5 + (c.h - 10) * i / 10.0) + 0.5;
            setColour(cr, i % 5 == 0 ? kLabel : kLabelDim);
            cairo_move_to(cr, c.x - 1, ty);
            cairo_line_to(cr, c.x + (i % 5 == 0 ? 4 : 3), ty);
            cairo_move_to(cr, c.x + c.w + 1, ty);
            cairo_line_to(cr, c.x + c.w - (i % 5 == 0 ? 4 : 3), ty);
            cairo_set_line_width(cr, 1);
            cairo_stroke(cr);
        }
        roundRect(cr, cx - 2.5, c.y + 3, 5, c.h - 6, 2);
    }
    else
    {
        roundRect(cr, c.x + 1, c.y + c.h / 2.0 - 2.5, c.w - 2, 5, 2);
    }
    setColour(cr, rgb(6, 6, 7));
    cairo_fill_preserve(cr);
    setColour(cr, rgb(90, 90, 94));
    cairo_set_line_width(cr, 0.8);
    cairo_stroke(cr);
}

void panelGrain(Canvas& canvas, std::uint32_t seed, double amount)
{
    cairo_t* cr = canvas.cr();
    Noise noise(seed);
    for (int y = 0; y < canvas.height(); ++y)
    {
        // Horizontal brushing: one streak value a row, lightly varied along it.
        const double row = noise.next();
        for (int x = 0; x < canvas.width(); x += 4)
        {
            const double v = (row * 0.6 + noise.next() * 0.4) * amount;
            cairo_rectangle(cr, x, y, 4, 1);
            cairo_set_source_rgba(cr, 1, 1, 1, v);
            cairo_fill(cr);
        }
    }
}

/** The panel's base: body, grain, section seams, wells, slots and every printed label. */
void drawPanelBase(Canvas& canvas)
{
    cairo_t* cr = canvas.cr();
    cairo_rectangle(cr, 0, 0, panel::kWidth, panel::kHeight);
    fillVertical(cr, 0, panel::kHeight, kPanelTop, kPanelBottom);
    panelGrain(canvas, 0x5EED0001u, 0.035);
    // A bright top edge and a dark bottom edge make the panel a plate.
    cairo_rectangle(cr, 0, 0, panel::kWidth, 1);
    setColour(cr, rgb(96, 97, 100));
    cairo_fill(cr);
    cairo_rectangle(cr, 0, panel::kHeight - 1, panel::kWidth, 1);
    setColour(cr, rgb(8, 8, 9));
    cairo_fill(cr);
    for (const panel::Seam& s : panel::kSeams)
    {
        cairo_rectangle(cr, s.x, s.y0, 1, s.y1 - s.y0);
        setColour(cr, rgb(12, 12, 13));
        cairo_fill(cr);
        cairo_rectangle(cr, s.x + 1, s.y0, 1, s.y1 - s.y0);
        setColour(cr, rgb(70, 71, 74));
        cairo_fill(cr);
    }

    for (const panel::Control& c : panel::kControls)
    {
        switch (c.base)
        {
        case panel::Base::Lcd:
            lcdWell(cr, c.x, c.y, c.w, c.h);
            break;
        case panel::Base::List:
            lcdWell(cr, c.x, c.y, c.w, c.h, rgb(18, 18, 20));
            break;
        case panel::Base::Preview:
            lcdWell(cr, c.x, c.y, c.w, c.h, kPreview);
            cairo_rectangle(cr, c.x, c.y, c.w, 13);
            setColour(cr, kRuler);
            cairo_fill(cr);
            cairo_rectangle(cr, c.x, c.y + 13, c.w, 1);
            setColour(cr, rgb(170, 166, 156));
            cairo_fill(cr);
            break;
        case panel::Base::Slot:
            faderSlot(cr, c, true);
            break;
        case panel::Base::Groove:
            faderSlot(cr, c, false);
            break;
        case panel::Base::Meter:
            lcdWell(cr, c.x, c.y, c.w, c.h, rgb(20, 14, 6));
            break;
        case panel::Base::None:
            break;
        }
    }
    // The status line along the bottom, where the device state or the busy level shows.
    lcdWell(cr, panel::kStatus.x, panel::kStatus.y, panel::kStatus.w, panel::kStatus.h);
    for (const panel::Label& l : panel::kLabels)
        label(cr, l.x, l.y, l.align, l.text);
    // The time signature's stroke between its two displays.
    text(cr, gFaces.bold, 14, kLabel, panel::kSignatureSlash.x, panel::kSignatureSlash.y, Align::Centre, "/");
}

/** A track row's lamp: the number and the band behind the row, lit or not. */
void drawTrackRow(cairo_t* cr, int row, bool lit)
{
    const double y = panel::trackRowTop(row);
    if (lit)
    {
        // Stroked on half pixels, the band keeps to rows y - 1 to y + 18, clear of its neighbours.
        roundRect(cr, panel::kTrackBand.x + 0.5, y - 0.5, panel::kTrackBand.w - 1, 19, 3);
        setColour(cr, rgb(255, 174, 36, 0.16));
        cairo_fill_preserve(cr);
        setColour(cr, rgb(255, 174, 36, 0.65));
        cairo_set_line_width(cr, 1);
        cairo_stroke(cr);
    }
    text(cr, gFaces.bold, 11, lit ? kAmber : kLabelDim, panel::kTrackBand.x + 6, y + 13, Align::Centre,
         std::to_string(row + 1));
}

bool makePanelFilm(const std::string& out, std::string& error)
{
    Canvas base(panel::kWidth, panel::kHeight);
    drawPanelBase(base);
    Canvas film(panel::kWidth, panel::kHeight * panel::kTracks);
    cairo_t* cr = film.cr();
    for (int frame = 0; frame < panel::kTracks; ++frame)
    {
        cairo_save(cr);
        cairo_translate(cr, 0, frame * panel::kHeight);
        cairo_set_source_surface(cr, base.surface(), 0, 0);
        cairo_paint(cr);
        for (int row = 0; row < panel::kTracks; ++row)
            drawTrackRow(cr, row, row == frame);
        cairo_restore(cr);
    }
    return film.save(out + "/tkbk.png", error);
}

/** The five images of a control: normal and pressed, off and on, and disabled. */
enum class State
{
    Off,
    OffDown,
    On,
    OnDown,
    Disabled,
};

struct StateName
{
    State state;
    const char* suffix;
};
constexpr StateName kStates[] = {{State::Off, "_off"},
                                 {State::OffDown, "_offdown"},
                                 {State::On, "_on"},
                                 {State::OnDown, "_ondown"},
                                 {State::Disabled, "_dis"}};

/** A key of the panel: a raised cap whose lamp lights when on. */
void drawKey(cairo_t* cr, int w, int h, State s, const Colour& lamp, const char* glyph)
{
    const bool down = s == State::OffDown || s == State::OnDown;
    const bool on = s == State::On || s == State::OnDown;
    const bool disabled = s == State::Disabled;
    roundRect(cr, 0.5, 0.5, w - 1, h - 1, 2.5);
    setColour(cr, rgb(6, 6, 7));
    cairo_fill(cr);
    const double inset = down ? 1.5 : 1.0;
    roundRect(cr, inset, inset, w - 2 * inset, h - 2 * inset - (down ? 0 : 1), 2);
    if (disabled)
        fillVertical(cr, 0, h, rgb(46, 46, 48), rgb(38, 38, 40));
    else if (down)
        fillVertical(cr, 0, h, rgb(48, 48, 51), rgb(64, 64, 68));
    else
        fillVertical(cr, 0, h, rgb(98, 98, 103), rgb(56, 56, 60));
    const double dy = down ? 1 : 0;
    const Colour ink = disabled ? kLabelDim : (on ? lamp : kLabel);
    if (glyph && (*glyph == '<' || *glyph == '>'))
    {
        // An arrow: a small solid triangle, pointing the way the view scrolls.
        const double cx = w / 2.0, cy = h / 2.0 - 0.5 + dy, d = *glyph == '<' ? -1 : 1;
        cairo_move_to(cr, cx + 2.5 * d, cy);
        cairo_line_to(cr, cx - 2 * d, cy - 3);
        cairo_line_to(cr, cx - 2 * d, cy + 3);
        cairo_close_path(cr);
        setColour(cr, ink);
        cairo_fill(cr);
        return;
    }
    if (glyph)
    {
        text(cr, gFaces.bold, 8.5, ink, w / 2.0, h / 2.0 + 3 + dy, Align::Centre, glyph);
        return;
    }
    // The lamp: a short bar near the top, with a glow when lit.
    const double lw = std::max(6.0, std::round(w * 0.4)), lx = std::round((w - lw) / 2);
    const double ly = std::round(h * 0.2) + dy;
    if (on && !disabled)
    {
        roundRect(cr, lx - 2, ly - 2, lw + 4, 7, 3);
        setColour(cr, {lamp.r, lamp.g, lamp.b, 0.35});
        cairo_fill(cr);
    }
    roundRect(cr, lx, ly, lw, 3, 1);
    if (disabled)
        setColour(cr, rgb(30, 30, 31));
    else if (on)
        setColour(cr, lamp);
    else
        setColour(cr, {lamp.r * 0.28, lamp.g * 0.28, lamp.b * 0.28});
    cairo_fill(cr);
}

/** A round radio or a square check of the click popup. */
void drawPopupMark(cairo_t* cr, int size, State s, bool round)
{
    const bool down = s == State::OffDown || s == State::OnDown;
    const bool on = s == State::On || s == State::OnDown;
    const double c = size / 2.0;
    if (round)
        cairo_arc(cr, c, c, c - 1, 0, 2 * kPi);
    else
        roundRect(cr, 1, 1, size - 2, size - 2, 2);
    setColour(cr, down ? rgb(30, 30, 32) : rgb(12, 12, 13));
    cairo_fill_preserve(cr);
    setColour(cr, s == State::Disabled ? kLabelDim : kLabel);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    if (!on)
        return;
    if (round)
        cairo_arc(cr, c, c, c - 3.5, 0, 2 * kPi);
    else
        cairo_rectangle(cr, 3.5, 3.5, size - 7, size - 7);
    setColour(cr, kAmber);
    cairo_fill(cr);
}

/** A fader's cap: a ridged block with a bright index line across its middle. */
void drawFaderCap(cairo_t* cr, int w, int h, bool down, bool enabled)
{
    roundRect(cr, 0.5, 0.5, w - 1, h - 1, 2);
    if (!enabled)
        fillVertical(cr, 0, h, rgb(70, 70, 72), rgb(52, 52, 54));
    else if (down)
        fillVertical(cr, 0, h, rgb(150, 150, 156), rgb(110, 110, 116));
    else
        fillVertical(cr, 0, h, rgb(200, 200, 206), rgb(120, 120, 126));
    setColour(cr, rgb(6, 6, 7));
    cairo_set_line_width(cr, 1);
    roundRect(cr, 0.5, 0.5, w - 1, h - 1, 2);
    cairo_stroke(cr);
    cairo_rectangle(cr, 2, std::floor(h / 2.0), w - 4, 1);
    setColour(cr, enabled ? kAmber : kLabelDim);
    cairo_fill(cr);
}

struct KeyStyle
{
    const char* name;
    int w, h;
    Colour lamp;
    const char* glyph; // printed on the cap instead of a lamp; "<" and ">" are arrows
};

bool makeStateImages(const std::string& out, std::string& error)
{
    const KeyStyle styles[] = {
        {"key", panel::kKeyW, panel::kKeyH, kAmber, nullptr},
        {"keyplay", panel::kKeyW, panel::kKeyH, kGreen, nullptr},
        {"keyrec", panel::kKeyW, panel::kKeyH, kRed, nullptr},
        {"speed", panel::kSpeedW, panel::kSpeedH, kAmber, nullptr},
        {"push", panel::kSmallKey, panel::kSmallKey, kAmber, nullptr},
        {"trksel", panel::kSmallKey, panel::kSmallKey, kAmber, nullptr},
        {"trkrec", panel::kSmallKey, panel::kSmallKey, kRed, nullptr},
        {"trksolo", panel::kSmallKey, panel::kSmallKey, kYellow, nullptr},
        {"trkmute", panel::kSmallKey, panel::kSmallKey, kBlue, nullptr},
        {"link", panel::kSmallKey, panel::kSmallKey, kAmber, nullptr},
        {"arrowleft", panel::kArrowW, panel::kArrowH, kAmber, "<"},
        {"arrowright", panel::kArrowW, panel::kArrowH, kAmber, ">"},
        {"zoomin", panel::kArrowW, panel::kArrowH, kAmber, "+"},
        {"zoomout", panel::kArrowW, panel::kArrowH, kAmber, "\xE2\x88\x92"},
    };
    for (const KeyStyle& k : styles)
    {
        for (const StateName& s : kStates)
        {
            Canvas c(k.w, k.h);
            drawKey(c.cr(), k.w, k.h, s.state, k.lamp, k.glyph);
            if (!c.save(out + "/" + k.name + s.suffix + ".png", error))
                return false;
        }
    }
    for (const char* mark : {"popradio", "popcheck"})
    {
        for (const StateName& s : kStates)
        {
            Canvas c(panel::kPopupMark, panel::kPopupMark);
            drawPopupMark(c.cr(), panel::kPopupMark, s.state, std::string(mark) == "popradio");
            if (!c.save(out + "/" + mark + s.suffix + ".png", error))
                return false;
        }
    }
    struct Cap
    {
        const char* file;
        bool down, enabled;
    };
    for (const Cap& cap : {Cap{"levelknob.png", false, true}, Cap{"levelknobdown.png", true, true},
                           Cap{"levelknoboff.png", false, false}})
    {
        Canvas c(panel::kCapW, panel::kCapH);
        drawFaderCap(c.cr(), panel::kCapW, panel::kCapH, cap.down, cap.enabled);
        if (!c.save(out + "/" + cap.file, error))
            return false;
    }
    return true;
}

/** Lamps that show by themselves: the beat light over the click key's lamp, and MIDI activity. */
bool makeLights(const std::string& out, std::string& error)
{
    {
        Canvas c(panel::kBeatLightW, panel::kBeatLightH);
        roundRect(c.cr(), 0, 0, panel::kBeatLightW, panel::kBeatLightH, 1);
        setColour(c.cr(), rgb(255, 226, 150));
        cairo_fill(c.cr());
        if (!c.save(out + "/beatlight.png", error))
            return false;
    }
    Canvas c(panel::kMidiLight, panel::kMidiLight);
    const double r = panel::kMidiLight / 2.0;
    cairo_pattern_t* p = cairo_pattern_create_radial(r, r, 0, r, r, r);
    cairo_pattern_add_color_stop_rgba(p, 0, 0.85, 1, 0.85, 1);
    cairo_pattern_add_color_stop_rgba(p, 0.5, kGreen.r, kGreen.g, kGreen.b, 1);
    cairo_pattern_add_color_stop_rgba(p, 1, kGreen.r, kGreen.g, kGreen.b, 0);
    cairo_arc(c.cr(), r, r, r, 0, 2 * kPi);
    cairo_set_source(c.cr(), p);
    cairo_fill(c.cr());
    cairo_pattern_destroy(p);
    return c.save(out + "/midilight.png", error);
}

/** The busy meter: its lit bar, in segments from amber to red, and the unlit back. */
bool makeMeter(const std::string& out, std::string& error)
{
    for (int lit = 0; lit < 2; ++lit)
    {
        Canvas c(panel::kMeterW, panel::kMeterH);
        for (int x = 0; x < panel::kMeterW; x += 3)
        {
            const double f = static_cast<double>(x) / panel::kMeterW;
            const Colour hot = f < 0.7 ? kAmber : (f < 0.9 ? rgb(255, 120, 30) : kRed);
            cairo_rectangle(c.cr(), x, 0, 2, panel::kMeterH);
            setColour(c.cr(), lit ? hot : Colour{hot.r * 0.2, hot.g * 0.2, hot.b * 0.2});
            cairo_fill(c.cr());
        }
        if (!c.save(out + (lit ? "/footmeterbar.png" : "/footmeterback.png"), error))
            return false;
    }
    return true;
}

/** The preview's playhead and loop markers, and the tile that lights the ruler between them. */
bool makeMarkers(const std::string& out, std::string& error)
{
    const int w = panel::kMarkerW, h = panel::kMarkerH;
    {
        Canvas c(w, h);
        cairo_t* cr = c.cr();
        cairo_rectangle(cr, 4, 0, 1, h);
        setColour(cr, rgb(20, 20, 22));
        cairo_fill(cr);
        cairo_move_to(cr, 0, 0);
        cairo_line_to(cr, w, 0);
        cairo_line_to(cr, 4.5, 5);
        cairo_close_path(cr);
        cairo_fill(cr);
        if (!c.save(out + "/markercursor.png", error))
            return false;
    }
    // A loop marker is a bracket: its line at x 4 (left) or 5 (right) with a flag pointing inwards.
    for (int right = 0; right < 2; ++right)
    {
        Canvas c(w, h);
        cairo_t* cr = c.cr();
        const double lx = right ? 4 : 4;
        cairo_rectangle(cr, lx, 0, 1, h);
        setColour(cr, rgb(150, 70, 10));
        cairo_fill(cr);
        if (right)
        {
            cairo_move_to(cr, 5, 0);
            cairo_line_to(cr, 0, 0);
            cairo_line_to(cr, 5, 7);
        }
        else
        {
            cairo_move_to(cr, 4, 0);
            cairo_line_to(cr, w, 0);
            cairo_line_to(cr, 4, 7);
        }
        cairo_close_path(cr);
        cairo_fill(cr);
        if (!c.save(out + (right ? "/markerright.png" : "/markerleft.png"), error))
            return false;
    }
    Canvas tile(panel::kHiliteTileW, panel::kRulerH);
    cairo_rectangle(tile.cr(), 0, 0, panel::kHiliteTileW, panel::kRulerH);
    setColour(tile.cr(), rgb(255, 174, 36, 0.45));
    cairo_fill(tile.cr());
    cairo_rectangle(tile.cr(), 0, panel::kRulerH - 2, panel::kHiliteTileW, 2);
    setColour(tile.cr(), rgb(200, 110, 10, 0.9));
    cairo_fill(tile.cr());
    return tile.save(out + "/hiliteruler.png", error);
}

/** The file list's rows: selection film, current-track band, in-track dot, the drag image. */
bool makeRows(const std::string& out, std::string& error)
{
    const int w = panel::kRowW, h = panel::kRowH;
    {
        Canvas c(w, h * 2);
        roundRect(c.cr(), 1, h + 1, w - 2, h - 2, 2);
        setColour(c.cr(), rgb(255, 174, 36, 0.22));
        cairo_fill_preserve(c.cr());
        setColour(c.cr(), rgb(255, 174, 36, 0.7));
        cairo_set_line_width(c.cr(), 1);
        cairo_stroke(c.cr());
        if (!c.save(out + "/docsel.png", error))
            return false;
    }
    {
        Canvas c(w, h);
        roundRect(c.cr(), 0, 0, w, h, 2);
        fillVertical(c.cr(), 0, h, rgb(150, 90, 20), rgb(110, 62, 12));
        if (!c.save(out + "/docsel2.png", error))
            return false;
    }
    {
        Canvas c(panel::kInTrackDot, panel::kInTrackDot);
        const double r = panel::kInTrackDot / 2.0;
        cairo_arc(c.cr(), r, r, r - 0.5, 0, 2 * kPi);
        setColour(c.cr(), kAmber);
        cairo_fill(c.cr());
        if (!c.save(out + "/docintrack.png", error))
            return false;
    }
    Canvas c(w, h);
    roundRect(c.cr(), 0.5, 0.5, w - 1, h - 1, 3);
    setColour(c.cr(), rgb(40, 40, 44, 0.85));
    cairo_fill_preserve(c.cr());
    setColour(c.cr(), kAmber);
    cairo_set_line_width(c.cr(), 1);
    cairo_stroke(c.cr());
    return c.save(out + "/dragelement.png", error);
}

/** The two scroll thumbs: the file list's (vertical) and the preview's (horizontal). */
bool makeThumbs(const std::string& out, std::string& error)
{
    struct Thumb
    {
        const char* file;
        int w, h;
        bool down;
    };
    for (const Thumb& t : {Thumb{"scrollthumbv.png", panel::kThumbVW, panel::kThumbVH, false},
                           Thumb{"scrollthumbvdown.png", panel::kThumbVW, panel::kThumbVH, true},
                           Thumb{"scrollthumbh.png", panel::kThumbHW, panel::kThumbHH, false},
                           Thumb{"scrollthumbhdown.png", panel::kThumbHW, panel::kThumbHH, true}})
    {
        Canvas c(t.w, t.h);
        roundRect(c.cr(), 0.5, 0.5, t.w - 1, t.h - 1, 2.5);
        if (t.down)
            fillVertical(c.cr(), 0, t.h, rgb(255, 190, 80), rgb(200, 120, 20));
        else
            fillVertical(c.cr(), 0, t.h, rgb(120, 120, 126), rgb(76, 76, 80));
        if (!c.save(out + "/" + t.file, error))
            return false;
    }
    return true;
}

/** The click popup's plate, with its title; the radios and texts stand over it. */
bool makePopup(const std::string& out, std::string& error)
{
    const int w = panel::kPopupW, h = panel::kPopupH;
    Canvas c(w, h);
    cairo_t* cr = c.cr();
    roundRect(cr, 0.5, 0.5, w - 1, h - 1, 4);
    fillVertical(cr, 0, h, rgb(52, 53, 56), rgb(30, 31, 33));
    setColour(cr, rgb(110, 110, 116));
    cairo_set_line_width(cr, 1);
    roundRect(cr, 0.5, 0.5, w - 1, h - 1, 4);
    cairo_stroke(cr);
    label(cr, w / 2.0, 12, Align::Centre, "CLICK SOUND", kAmber);
    cairo_rectangle(cr, 8, 16, w - 16, 1);
    setColour(cr, rgb(90, 90, 94));
    cairo_fill(cr);
    return c.save(out + "/clickpopup.png", error);
}

/** The area where a track's effect opens, covered when there is none or the track is frozen. */
bool makeBackdrop(const std::string& path, const std::string& caption, const Colour& tint, std::uint32_t seed,
                  std::string& error)
{
    const int w = panel::kBackdropW, h = panel::kBackdropH;
    Canvas c(w, h);
    cairo_t* cr = c.cr();
    cairo_rectangle(cr, 0, 0, w, h);
    fillVertical(cr, 0, h, rgb(38, 39, 42), rgb(20, 21, 23));
    panelGrain(c, seed, 0.025);
    // A grille cloth behind a frame, as on a cabinet.
    const double gx = 60, gy = 60, gw = w - 120, gh = h - 120;
    roundRect(cr, gx - 6, gy - 6, gw + 12, gh + 12, 10);
    fillVertical(cr, gy - 6, gy + gh + 6, rgb(70, 70, 74), rgb(14, 14, 15));
    roundRect(cr, gx, gy, gw, gh, 6);
    setColour(cr, {tint.r * 0.25, tint.g * 0.25, tint.b * 0.25});
    cairo_fill_preserve(cr);
    cairo_clip(cr);
    cairo_set_line_width(cr, 1);
    for (double d = -gh; d < gw + gh; d += 4)
    {
        cairo_move_to(cr, gx + d, gy);
        cairo_line_to(cr, gx + d + gh, gy + gh);
        cairo_move_to(cr, gx + d + gh, gy);
        cairo_line_to(cr, gx + d, gy + gh);
    }
    setColour(cr, {tint.r * 0.45, tint.g * 0.45, tint.b * 0.45, 0.5});
    cairo_stroke(cr);
    cairo_reset_clip(cr);
    // The caption on a plate in the middle.
    const double pw = 420, ph = 64, px = (w - pw) / 2, py = (h - ph) / 2;
    roundRect(cr, px, py, pw, ph, 6);
    setColour(cr, rgb(10, 10, 11, 0.92));
    cairo_fill_preserve(cr);
    setColour(cr, {tint.r, tint.g, tint.b, 0.8});
    cairo_set_line_width(cr, 1.5);
    cairo_stroke(cr);
    text(cr, gFaces.bold, 22, {tint.r, tint.g, tint.b}, w / 2.0, py + ph / 2 + 8, Align::Centre, caption);
    return c.save(path, error);
}

/** The program's icon: a dark rounded plate with an amber ring, a wave through it and "3". */
bool makeIcon(const std::string& path, int size, std::string& error)
{
    Canvas c(size, size);
    cairo_t* cr = c.cr();
    cairo_scale(cr, size / 256.0, size / 256.0);
    roundRect(cr, 8, 8, 240, 240, 44);
    fillVertical(cr, 8, 248, rgb(58, 59, 63), rgb(22, 23, 25));
    roundRect(cr, 8, 8, 240, 240, 44);
    setColour(cr, rgb(110, 110, 116));
    cairo_set_line_width(cr, 4);
    cairo_stroke(cr);
    cairo_arc(cr, 128, 128, 84, 0, 2 * kPi);
    setColour(cr, kAmber);
    cairo_set_line_width(cr, 14);
    cairo_stroke(cr);
    cairo_move_to(cr, 40, 128);
    for (int x = 0; x <= 176; x += 2)
        cairo_line_to(cr, 40 + x, 128 - 38 * std::sin(x * kPi / 44.0) * std::exp(-x / 140.0));
    setColour(cr, rgb(240, 236, 226));
    cairo_set_line_width(cr, 9);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_stroke(cr);
    text(cr, gFaces.bold, 64, kAmber, 196, 228, Align::Centre, "3");
    return c.save(path, error);
}

/** The panel as it shows: frame 0 of the film with every control's image at its place. */
bool makePreview(const std::string& dir, const std::string& path, std::string& error)
{
    Canvas c(panel::kWidth, panel::kHeight);
    cairo_t* cr = c.cr();
    auto paint = [&](const std::string& file, double x, double y)
    {
        cairo_surface_t* s = cairo_image_surface_create_from_png((dir + "/" + file).c_str());
        cairo_set_source_surface(cr, s, x, y);
        cairo_paint(cr);
        cairo_surface_destroy(s);
    };
    paint("tkbk.png", 0, 0);
    const std::vector<std::string> lit = {"tOn0", "tnPl", "tSo2", "tMu3", "tRc1",
                                          "rat1", "ckEn", "fxLo", "fxEn"};
    for (const panel::Control& k : panel::kControls)
    {
        const std::string images = k.images;
        if (images.empty() || images.find("back") != std::string::npos)
            continue;
        if (images.size() > 4 && images.substr(images.size() - 4) == ".png")
        {
            const bool vertical = k.w < k.h;
            paint(images, vertical ? k.x : k.x + k.w / 3, vertical ? k.y + k.h / 3 : k.y + 1);
            continue;
        }
        const bool on = std::find(lit.begin(), lit.end(), k.name) != lit.end();
        paint(images + (std::string(k.name) == "tFrz" ? "_dis" : (on ? "_on" : "_off")) + ".png", k.x, k.y);
    }
    paint("docsel.png", 7, 7 - panel::kRowH);
    paint("docsel2.png", 7, 7 + panel::kRowH);
    paint("docintrack.png", 10, 7 + panel::kRowH + 9);
    paint("hiliteruler.png", 420, 8);
    paint("hiliteruler.png", 428, 8);
    paint("markerleft.png", 416, 21);
    paint("markerright.png", 431, 21);
    paint("markercursor.png", 500, 21);
    text(cr, gFaces.mono, 18, kAmber, 245, 128, Align::Centre, "12.3.4");
    text(cr, gFaces.mono, 15, kAmber, 786, 102, Align::Centre, "120.0");
    text(cr, gFaces.sans, 11, kAmber, 292, 34, Align::Centre, "i1");
    return c.save(path, error);
}

bool makeAll(const std::string& out, std::string& error)
{
    return artkit::makeFolders(out + "/b/backs", error) && makePanelFilm(out, error) &&
           makeStateImages(out, error) && makeLights(out, error) && makeMeter(out, error) &&
           makeMarkers(out, error) && makeRows(out, error) && makeThumbs(out, error) &&
           makePopup(out, error) &&
           makeBackdrop(out + "/b/backs/fxdisabled.png", "No effect on this track", rgb(214, 208, 194),
                        0x5EED0002u, error) &&
           makeBackdrop(out + "/b/backs/fxfreezed.png", "Track frozen", rgb(150, 200, 240), 0x5EED0003u,
                        error) &&
           makeIcon(out + "/kv3appicon.png", 48, error) && makeIcon(out + "/kv3appicon128.png", 128, error) &&
           makeIcon(out + "/kv3appicon256.png", 256, error);
}

int usage()
{
    std::fprintf(stderr, "usage: artgen [--fonts DIR] OUTDIR\n       artgen --geometry\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string fontDir = artkit::defaultFontDir();
    std::string out;
    std::string preview;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--geometry")
        {
            for (const panel::Control& c : panel::kControls)
                std::printf("%s %d %d %d %d %s\n", c.name, c.x, c.y, c.w, c.h, *c.images ? c.images : "-");
            return 0;
        }
        if (arg == "--preview" && i + 2 < argc)
        {
            preview = argv[i + 2];
            out = argv[i + 1];
            i += 2;
        }
        else if (arg == "--fonts" && i + 1 < argc)
            fontDir = argv[++i];
        else if (!arg.empty() && arg[0] != '-' && out.empty())
            out = arg;
        else
            return usage();
    }
    if (out.empty())
        return usage();

    std::string error;
    artkit::FontLibrary fonts;
    // The size given here is unused: cairo scales the outlines itself.
    FT_Face sans = fonts.open(fontDir, "DejaVuSans.ttf", 12, error);
    FT_Face bold = sans ? fonts.open(fontDir, "DejaVuSans-Bold.ttf", 12, error) : nullptr;
    FT_Face mono = bold ? fonts.open(fontDir, "DejaVuSansMono.ttf", 12, error) : nullptr;
    bool ok = mono != nullptr;
    if (ok)
    {
        gFaces.sans = cairo_ft_font_face_create_for_ft_face(sans, 0);
        gFaces.bold = cairo_ft_font_face_create_for_ft_face(bold, 0);
        gFaces.mono = cairo_ft_font_face_create_for_ft_face(mono, 0);
    }
    if (ok && !preview.empty())
        ok = makePreview(out, preview, error);
    else if (ok)
        ok = makeAll(out, error);
    for (cairo_font_face_t* f : {gFaces.sans, gFaces.bold, gFaces.mono})
        if (f)
            cairo_font_face_destroy(f);
    // Cairo's caches hold the faces' FreeType handles: empty them before the faces close.
    cairo_debug_reset_static_data();
    if (!ok)
    {
        std::fprintf(stderr, "artgen: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
