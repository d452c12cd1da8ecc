// Internal: frame rows top-down and pixels of the RGB types as 8-bit BGRA
// words (0xAARRGGBB), shared by the frame operations.
#pragma once
#include "video/dib.h"

namespace zvdib {

int BitsOf(ZVPIXELTYPE t);
// Top row and the step to the next row down; false for a bad header.
bool Rows(const BITMAPINFOHEADER *h, const void *pixels, int stride, BYTE **top, LONG_PTR *step);
// Types ToBGRA reads and FromBGRA writes.
bool CanRead(ZVPIXELTYPE t);
bool CanWrite(ZVPIXELTYPE t);
void ToBGRA(ZVPIXELTYPE t, const BYTE *row, int x0, int n, const RGBQUAD *pal, int palCount, DWORD *out);
void FromBGRA(ZVPIXELTYPE t, const DWORD *in, int n, BYTE *row, int x0);

// Bytes of a channel that ZvDibSwapRB swaps for a type; 0 for a type it
// doesn't take.
int SwapSize(ZVPIXELTYPE t);

// rect (null: the whole frame) clipped to the frame; false when empty.
bool ClipRect(const BITMAPINFOHEADER *h, const RECT *rect, RECT *out);

// A fade's settings as ZvDibFadeToColor takes them: the colour in the
// frame's channel order, the amount clamped and as a 16-bit fraction.
struct Fade {
    ZVPIXELTYPE t;
    int a;
    float f;
    BYTE c[4];
    float fc[4];
    int channels;
};
HRESULT MakeFade(Fade *k, const BITMAPINFOHEADER *frame, DWORD color, DWORD flags, float amount);

// A box filter's settings as ZvDibBoxFilter takes them: S_FALSE when the
// rectangle is empty; lo and hi the source columns the box reaches.
struct Box {
    const BYTE *srcTop;
    BYTE *dstTop;
    LONG_PTR srcStep, dstStep;
    int w, h, ch, bpp, isFloat, rx, ry, n;
    float inv;
    RECT r;
    int lo, hi;
};
HRESULT MakeBox(Box *b, const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect, int radiusX,
                int radiusY);

} // namespace zvdib
