// The simulated machine's panel: pages, and a screen image of each page as
// a binary PGM (the panel block's format is the machine's own choice).
#ifndef KZFLEET_PANEL_H
#define KZFLEET_PANEL_H

#include <QByteArray>

namespace Panel {

constexpr int kWidth = 160;
constexpr int kHeight = 120;
constexpr unsigned kPages = 8;

/// The screen of `page` (0 to kPages - 1) of machine `index`, with a mark
/// where the last touch was (x, y in screen pixels; outside: no mark).
QByteArray screen(int index, unsigned page, int x = -1, int y = -1);
/// The page a touch at (x, y) on `page` leads to: the left half goes back,
/// the right half forward.
unsigned pageAfterTouch(unsigned page, int x);

} // namespace Panel

#endif
