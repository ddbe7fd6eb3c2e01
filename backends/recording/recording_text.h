// Recording for text: a glyph sink that keeps what a text engine draws, and a
// text engine that records every call made on it before it hands the call to
// the engine it wraps. Tests compare these records; a host can print them.
#pragma once

#include <string>
#include <vector>

#include "foundation/rendering.h"

namespace DL {

// One draw as a sink received it.
struct RecordedGlyphs {
  ZR_Point start{};                        // the start point of the draw
  std::vector<unsigned short> characters;  // the glyphs' characters
  std::vector<ZR_Point> origins;           // and their origins
  std::vector<int> contours;               // contours of each glyph's outline, 0 without one
  std::vector<int> points;                 // their points in all
  ZR_RGB32 rendition_color = 0;            // the rendition's colour
  float size = 0.0f;                       // its text size
  float rotation = 0.0f;                   // its text rotation
};

// A glyph sink that keeps every draw it receives.
class RecordingGlyphSink : public ZR_Glyph_Sink {
 public:
  std::vector<RecordedGlyphs> draws;  // every draw, in order
  void glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
              const ZR_Placed_Glyph* glyphs) override;
};

// One call on a text engine, with the text attributes of the rendition at the
// time of the call.
struct RecordedTextCall {
  std::string entry;  // "prepare_font", "draw_unicode_text", "measure_multibyte_text", ...
  ZR_Point point{};   // start point of draws and measures
  std::vector<unsigned short> text;  // the characters (multibyte: the bytes)
  int length = 0;                    // the length argument
  unsigned short character = 0;      // character_contour
  bool has_detail = false;           // a measure was given a detail record with widths
  const void* font = nullptr;        // prepare_font: the holder; others: the rendition's body
  float size = 0.0f;                 // the rendition's text size
  float rotation = 0.0f;             // its text rotation
  float scale = 0.0f;                // its text scale
  ZR_RGB32 rendition_color = 0;      // its colour
};

// Records and forwards. Without an engine to wrap it answers as a fixed-pitch
// engine of nominal size 1: every character advances 0.6 em, its outline is
// one rectangle 0.5 em wide and 0.7 em high on the baseline (none for a
// space), and a string's box runs from -0.2 em to 0.8 em, turned by the
// rendition's rotation. Holds a reference on the wrapped engine.
class RecordingTextEngine : public ZR_Text_Engine {
 public:
  // Wraps `inner` (referenced), or answers alone when it is null.
  explicit RecordingTextEngine(ZR_Text_Engine* inner = nullptr);
  ~RecordingTextEngine() override;

  std::vector<RecordedTextCall> calls;  // every call, in order
  // The entry names alone, in order.
  std::vector<std::string> entries() const;
  void clear() { calls.clear(); }  // forgets the calls

  ZR_Font prepare_font(ZR_Font* font) override;
  void draw_unicode_text(ZR_Rendition* rendition, const ZR_Point* point, const unsigned short* text,
                         int length) override;
  void draw_multibyte_text(ZR_Rendition* rendition, const ZR_Point* point,
                           const unsigned char* text, int length) override;
  ZR_Contour_Set character_contour(ZR_Rendition* rendition, unsigned short character,
                                   ZR_Character_Metrics* metrics) override;
  void font_metrics(ZR_Rendition* rendition, ZR_Font_Metrics* metrics) override;
  void measure_unicode_text(ZR_Rendition* rendition, const ZR_Point* start,
                            const unsigned short* text, int length, ZR_Point* corners, int flags,
                            ZR_Text_Detail* detail) override;
  void measure_multibyte_text(ZR_Rendition* rendition, const ZR_Point* start,
                              const unsigned char* text, int length, ZR_Point* corners, int flags,
                              ZR_Text_Detail* detail) override;

 private:
  RecordedTextCall& record(const char* entry, ZR_Rendition* rendition);
  void fixed_measure(ZR_Rendition* rendition, const ZR_Point* start, int length, ZR_Point* corners,
                     ZR_Text_Detail* detail);
  ZR_Text_Engine* inner_;
};

}  // namespace DL
