// Where every control of the main panel stands (850 x 165). The background film is drawn from this
// table, with each control's well, slot and printed label in place, so the layout of the panel must
// give its controls these frames: `artgen --geometry` prints them.
#pragma once

namespace panel
{

constexpr int kWidth = 850;
constexpr int kHeight = 165;
constexpr int kTracks = 4;

// Sizes of the images the controls take.
constexpr int kKeyW = 26, kKeyH = 18;            // transport, effect and click keys
constexpr int kSpeedW = 30, kSpeedH = 16;        // speed radios
constexpr int kSmallKey = 16;                    // track row keys, push buttons, link
constexpr int kArrowW = 12, kArrowH = 11;        // scroll and zoom arrows
constexpr int kCapW = 18, kCapH = 10;            // fader cap
constexpr int kPopupMark = 12;                   // popup radios and check
constexpr int kMeterW = 52, kMeterH = 6;         // busy meter
constexpr int kMidiLight = 8;                    // MIDI lamp
constexpr int kBeatLightW = 10, kBeatLightH = 3; // the beat lamp over the click key's lamp
constexpr int kMarkerW = 9, kMarkerH = 47;       // preview markers
constexpr int kRulerH = 13;                      // preview ruler
constexpr int kHiliteTileW = 8;
constexpr int kRowW = 165, kRowH = 24; // file list row
constexpr int kInTrackDot = 7;
constexpr int kThumbVW = 10, kThumbVH = 24; // file list scroll thumb
constexpr int kThumbHW = 40, kThumbHH = 9;  // preview scroll thumb
constexpr int kPopupW = 150, kPopupH = 124; // click popup
constexpr int kBackdropW = 850, kBackdropH = 582;

/** What the panel has baked in under a control. */
enum class Base
{
    None,
    Lcd,     // near-black display glass
    List,    // the file list's well
    Preview, // the light neutral under the waveform, ruler on top
    Slot,    // a fader's groove with its scale
    Groove,  // a scroll bar's groove
    Meter,   // the busy meter's well
};

/**
 * A control: its name, frame, what lies under it, and its images: a state set "S" stands for
 * S_off.png, S_offdown.png, S_on.png, S_ondown.png and S_dis.png; a name ending in ".png" is one image.
 */
struct Control
{
    const char* name;
    int x, y, w, h;
    Base base;
    const char* images;
};

constexpr int trackRowTop(int row)
{
    return 20 + 21 * row;
}

/** Columns of the track rows: select, arm, solo, mute, input. */
constexpr int kColSel = 198, kColRec = 219, kColSolo = 240, kColMute = 261, kColIn = 282;

#define KV3_TRACK_ROW(n)                                                                                     \
    Control{"tOn" #n, kColSel, trackRowTop(n) + 1, kSmallKey, kSmallKey, Base::None, "trksel"},              \
        Control{"tRc" #n, kColRec, trackRowTop(n) + 1, kSmallKey, kSmallKey, Base::None, "trkrec"},          \
        Control{"tSo" #n, kColSolo, trackRowTop(n) + 1, kSmallKey, kSmallKey, Base::None, "trksolo"},        \
        Control{"tMu" #n, kColMute, trackRowTop(n) + 1, kSmallKey, kSmallKey, Base::None, "trkmute"},        \
        Control                                                                                              \
    {                                                                                                        \
        "iSl" #n, kColIn, trackRowTop(n) + 1, 20, kSmallKey, Base::Lcd, ""                                   \
    }

constexpr Control kControls[] = {
    // File list and its buttons.
    {"list", 7, 7, 165, 127, Base::List, ""},
    {"lscr", 174, 7, 10, 127, Base::Groove, "scrollthumbv.png"},
    {"loaf", 7, 141, kSmallKey, kSmallKey, Base::None, "push"},
    {"emty", 64, 141, kSmallKey, kSmallKey, Base::None, "push"},
    {"expb", 124, 141, kSmallKey, kSmallKey, Base::None, "push"},
    // Track rows, bar display.
    KV3_TRACK_ROW(0),
    KV3_TRACK_ROW(1),
    KV3_TRACK_ROW(2),
    KV3_TRACK_ROW(3),
    {"tabs", 190, 108, 110, 26, Base::Lcd, ""},
    // Waveform preview, its scrolling and zoom.
    {"prvw", 306, 8, 494, 60, Base::Preview, ""},
    {"scde", 306, 71, kArrowW, kArrowH, Base::None, "arrowleft"},
    {"zosc", 321, 71, 434, kArrowH, Base::Groove, "scrollthumbh.png"},
    {"scin", 758, 71, kArrowW, kArrowH, Base::None, "arrowright"},
    {"zoou", 774, 71, kArrowW, kArrowH, Base::None, "zoomout"},
    {"zoin", 788, 71, kArrowW, kArrowH, Base::None, "zoomin"},
    // Master and input faders with the input gain's display.
    {"masv", 806, 20, kCapW, 52, Base::Slot, "levelknob.png"},
    {"inga", 826, 20, kCapW, 52, Base::Slot, "levelknob.png"},
    {"gadi", 806, 76, 38, 13, Base::Lcd, ""},
    // Transport and speed.
    {"tnPl", 306, 94, kKeyW, kKeyH, Base::None, "keyplay"},
    {"tnRe", 334, 94, kKeyW, kKeyH, Base::None, "keyrec"},
    {"tnLo", 362, 94, kKeyW, kKeyH, Base::None, "key"},
    {"tnAr", 390, 94, kKeyW, kKeyH, Base::None, "key"},
    {"rat0", 306, 126, kSpeedW, kSpeedH, Base::None, "speed"},
    {"rat1", 340, 126, kSpeedW, kSpeedH, Base::None, "speed"},
    {"rat2", 374, 126, kSpeedW, kSpeedH, Base::None, "speed"},
    // The current track's faders, tempo link and value display.
    {"tVol", 430, 94, kCapW, 50, Base::Slot, "levelknob.png"},
    {"tPan", 460, 94, kCapW, 50, Base::Slot, "levelknob.png"},
    {"tPch", 490, 94, kCapW, 50, Base::Slot, "levelknob.png"},
    {"tTpo", 520, 94, kCapW, 50, Base::Slot, "levelknob.png"},
    {"telk", 548, 94, kSmallKey, kSmallKey, Base::None, "link"},
    {"curv", 546, 120, 62, 22, Base::Lcd, ""},
    // Effect and freeze.
    {"fxLo", 664, 86, kKeyW, kKeyH, Base::None, "key"},
    {"fxEn", 664, 106, kKeyW, kKeyH, Base::None, "key"},
    {"tFrz", 664, 126, kKeyW, kKeyH, Base::None, "key"},
    // Metronome.
    {"ckEn", 698, 96, kKeyW, kKeyH, Base::None, "key"},
    {"blin", 706, 100, kBeatLightW, kBeatLightH, Base::None, "beatlight.png"},
    {"ckso", 728, 96, kKeyW, kKeyH, Base::None, "key"},
    {"meTe", 762, 86, 48, 20, Base::Lcd, ""},
    {"meVo", 814, 86, 30, 20, Base::Lcd, ""},
    {"meSn", 762, 116, 22, 20, Base::Lcd, ""},
    {"meSd", 794, 116, 22, 20, Base::Lcd, ""},
    {"ckpo", 694, 8, kPopupW, kPopupH, Base::None, ""},
    // The status line: device state, MIDI lamp, busy level.
    {"haal", 194, 150, 456, 14, Base::None, ""},
    {"mibl", 686, 153, kMidiLight, kMidiLight, Base::None, "midilight.png"},
    {"cpla", 700, 152, 40, 10, Base::None, ""},
    {"levk", 744, 154, kMeterW, kMeterH, Base::Meter, "footmeterback.png"},
    {"levb", 744, 154, kMeterW, kMeterH, Base::None, "footmeterbar.png"},
    {"cpdi", 800, 150, 40, 13, Base::None, ""},
};
#undef KV3_TRACK_ROW

/** The status line's glass along the bottom right. */
struct Rect
{
    int x, y, w, h;
};
constexpr Rect kStatus{190, 150, 654, 13};
/** The band that lights behind the current track's row. */
constexpr Rect kTrackBand{188, 0, 114, 20};

struct Point
{
    int x, y;
};
constexpr Point kSignatureSlash{789, 131};

/** A groove between sections: a dark line with a light one beside it. */
struct Seam
{
    int x, y0, y1;
};
constexpr Seam kSeams[] = {{186, 4, 161},  {303, 84, 148}, {421, 84, 148},
                           {613, 84, 148}, {692, 84, 148}, {802, 6, 92}};

enum class Align
{
    Left,
    Centre,
    Right,
};

/** A printed label: its baseline point and how the text stands on it. */
struct Label
{
    int x, y;
    Align align;
    const char* text;
};

constexpr Label kLabels[] = {
    {206, 16, Align::Centre, "TRK"},   {227, 16, Align::Centre, "REC"},
    {248, 16, Align::Centre, "SOLO"},  {269, 16, Align::Centre, "MUTE"},
    {292, 16, Align::Centre, "IN"},    {245, 144, Align::Centre, "POSITION"},
    {26, 152, Align::Left, "LOAD"},    {83, 152, Align::Left, "EMPTY"},
    {143, 152, Align::Left, "EXPORT"}, {815, 16, Align::Centre, "MST"},
    {835, 16, Align::Centre, "IN"},    {319, 91, Align::Centre, "PLAY"},
    {347, 91, Align::Centre, "REC"},   {375, 91, Align::Centre, "LOOP"},
    {403, 91, Align::Centre, "AUTO"},  {321, 123, Align::Centre, "x0.5"},
    {355, 123, Align::Centre, "x1"},   {389, 123, Align::Centre, "x2"},
    {439, 91, Align::Centre, "VOL"},   {469, 91, Align::Centre, "PAN"},
    {499, 91, Align::Centre, "PITCH"}, {529, 91, Align::Centre, "TEMPO"},
    {567, 105, Align::Left, "LINK"},   {660, 98, Align::Right, "FX LOAD"},
    {660, 118, Align::Right, "FX ON"}, {660, 138, Align::Right, "FREEZE"},
    {711, 93, Align::Centre, "CLICK"}, {741, 93, Align::Centre, "SOUND"},
    {786, 113, Align::Centre, "BPM"},  {829, 113, Align::Centre, "VOL"},
    {789, 145, Align::Centre, "BEAT"}, {683, 160, Align::Right, "MIDI"},
};

} // namespace panel
