#pragma once

class Document;
class Manager;
class Metronome;

/**
 * Pushes a loaded project into the engine as the main window does after a load: a speed ratio of 1,
 * the four tracks (applyAll), the loop (enabled, start, end), then the project's speed ratio, which
 * converts the loop points; then the session tempo, the master volume and the input gain. When a metronome is
 * given it gets the project's tempo times the speed ratio and its signature, and its strip the project's
 * click volume: 100% is 0 dB and 0% is -40 dB. Whether the click is enabled is left to the caller.
 */
// [ui thread]
void applyDocumentSession(Document& doc, Manager& manager, Metronome* metronome);
