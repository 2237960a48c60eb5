#pragma once

class QWidget;

// Reports the time of the window's first painted frame when the environment asks for it.
void installFirstPaintProbe(QWidget *window);
