#pragma once

class QWidget;

// Start-up measurement hook for the benchmark. Does nothing unless the environment variable
// DORVIK_FIRST_PAINT_EXIT is "1"; then, once `window` has painted for the first time, prints
//   first-paint-ms <milliseconds since the process started> rss-kb <resident memory in KiB>
// on one line to standard output and quits the application.
void installFirstPaintProbe(QWidget *window);
