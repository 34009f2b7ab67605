#include "input/rectangle.h"

int CRectangle::Maximum() const {
    const int w = Width();
    const int h = Height();
    if (w >= 2592 || h > 1943) return 9;
    if (w >= 2560 || h > 1599) return 12;
    if (w >= 2048 || h >= 1536) return 15;
    if (w >= 1920 || h >= 1200) return 20;
    if (w > 1599) return 24;
    if (w >= 1280 || h >= 1024) return 30;
    return 45;
}
