// Video frames: a BITMAPINFOHEADER, its masks or palette, then the pixels, in
// one block of global memory. The header's compression field also carries the
// FourCC of planar and packed YUV frames (geometry in video/yuv.h).
//
// A frame argument is the header; a null pixel pointer means the pixels follow
// the header (masks or palette first), and a stride of 0 means the computed one.
// Rows run bottom-up unless the height is negative.
#pragma once
#include "zvbase.h"

typedef int ZVPIXELTYPE;
enum {
    ZVPT_NONE = 0,
    ZVPT_PAL1 = 16,
    ZVPT_GREY1 = 17, ZVPT_GREY2, ZVPT_GREY4, ZVPT_GREY8, ZVPT_GREY16, ZVPT_GREY32,
    ZVPT_PAL4 = 23, ZVPT_PAL8 = 24,
    ZVPT_RGB555 = 25, ZVPT_RGB565 = 26, ZVPT_BGR24 = 27, ZVPT_BGRA32 = 28,
    ZVPT_RGBA32 = 29,      // bytes R, G, B, A
    ZVPT_RGB10A2 = 30,     // red in the high bits
    ZVPT_RGBA64 = 31,      // 16 bits a channel, order of type 29
    ZVPT_RGBAF = 32,       // float a channel, order of type 29
    ZVPT_RGB10A2_2 = 34,   // red in the low bits
    ZVPT_UYVY = 64, ZVPT_YUYV, ZVPT_Y41B, ZVPT_I420, ZVPT_V210, ZVPT_P010, ZVPT_PL10,
    ZVPT_P210, ZVPT_P216, ZVPT_Y210, ZVPT_P410, ZVPT_NV12, ZVPT_YV12, ZVPT_YV16, ZVPT_A410,
    ZVPT_P012 = 82, ZVPT_P212, ZVPT_P412, ZVPT_YV24,
};

#define ZVFOURCC(a, b, c, d) ((DWORD)(BYTE)(a) | ((DWORD)(BYTE)(b) << 8) | ((DWORD)(BYTE)(c) << 16) | ((DWORD)(BYTE)(d) << 24))
#define ZVFOURCC_GREY ZVFOURCC('Z', 'V', 'G', 'S')
#define ZVFOURCC_DEEP ZVFOURCC('Z', 'V', 'D', 'B')

// What ZvPixelTypeToBitAttribs reports when asked for the attribute block.
typedef struct tagZVPIXELATTRIBS {
    int bits;             // bits a pixel as the header carries them
    DWORD compression;
    DWORD masks[3];       // red, green, blue for compression 3
    BYTE channelBits[4];  // red, green, blue, alpha (grey: alpha place)
    int isYUV;
    int planes;           // 1 packed, 2 luma and interleaved chroma, 3 or 4
    int chromaShiftX;     // horizontal and vertical subsampling as shifts
    int chromaShiftY;
    int sampleBits;       // significant bits of a YUV sample
    int sampleBytes;      // bytes of a sample in memory (1 or 2)
    int reserved[4];
} ZVPIXELATTRIBS;

ZVAPI ZVPIXELTYPE ZvGetPixelType(const BITMAPINFOHEADER *header);
// bits and compression out (either may be null); attribs (64 bytes) and
// masks (three words, for types 26, 30, 34) when not null. E_INVALIDARG for
// a type the table does not have.
ZVAPI HRESULT ZvPixelTypeToBitAttribs(ZVPIXELTYPE type, int *bits, DWORD *compression, ZVPIXELATTRIBS *attribs,
                                      DWORD *masks);
// Bits a pixel; the bits of red, green, blue and alpha in channels.
ZVAPI int ZvGetPixelBitsPerChannel(ZVPIXELTYPE type, BYTE channels[4]);
ZVAPI int ZvCountBits(DWORD word);
ZVAPI DWORD ZvCreateBitMask(int count, int shift);
ZVAPI BOOL ZvVideo_IsCompressed(const BITMAPINFOHEADER *header);

// Bytes of one RGB row: ((bits * width + 31) >> 3) & ~3.
ZVAPI int ZvDibStride(const BITMAPINFOHEADER *header);
// Where the pixels start when they follow the header.
ZVAPI BYTE *ZvDibPixels(const BITMAPINFOHEADER *header);
// Palette entries stored behind the header.
ZVAPI int ZvDibPaletteCount(const BITMAPINFOHEADER *header);

ZVAPI void ZvVideo_InitBitmapInfo(BITMAPINFOHEADER *header, int width, int height, int bits, DWORD compression,
                                  DWORD imageSize);
// A palette entry (RGBQUAD) to a colour 0xAARRGGBB and back.
ZVAPI DWORD ZvVideo_PaletteRGBAFromEntry(const RGBQUAD *entry);
ZVAPI void ZvVideo_PaletteEntryFromRGBA(RGBQUAD *entry, DWORD color);

#define ZVDIBALLOC_ZERO  0x1
#define ZVDIBALLOC_NOTAG 0x80000000u
ZVAPI HRESULT ZvDibAlloc(BITMAPINFOHEADER **frame, ZVPIXELTYPE type, int width, int height, const RGBQUAD *palette,
                         int paletteSize, DWORD flags, DWORD tag);
ZVAPI HRESULT ZvDibFree(BITMAPINFOHEADER *frame, DWORD flags);
// Fills header (40 bytes) and gives the bytes of header with masks or palette
// and of the image, without allocating.
ZVAPI HRESULT ZvDibInfo(int *headerSize, int *imageSize, BITMAPINFOHEADER *header, ZVPIXELTYPE type, int width,
                        int height, const RGBQUAD *palette, int paletteSize);
// Frames alive and the sum of their image sizes.
ZVAPI LONG ZvDibGetAllocCount(LONGLONG *imageBytes);

// Clip results of ZvDibPrepareRects: what was cut from each side of the
// source rectangle.
typedef struct tagZVDIBCLIP {
    LONG left, top, right, bottom;
} ZVDIBCLIP;
// Rectangles are top-down (row 0 is the top row whatever the height's sign).
ZVAPI void ZvDibPrepareRects(const BITMAPINFOHEADER *src, RECT *srcOut, const RECT *srcRect,
                             const BITMAPINFOHEADER *dst, RECT *dstOut, const RECT *dstRect, ZVDIBCLIP *clip);

#define ZVDIBCOPY_FIXEDPOINT 0x1000000u  // rectangles in 1/16384 pixel
#define ZVDIBCOPY_BICUBIC    0x4000000u
ZVAPI HRESULT ZvDibCopy(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                        const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect,
                        DWORD flags);

// Colours are 0xAARRGGBB for 8-bit types; deep types take them scaled.
ZVAPI HRESULT ZvDibSet(const BITMAPINFOHEADER *frame, void *pixels, int stride, const RECT *rect, DWORD color);
ZVAPI HRESULT ZvDibFillRect(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color);
// channel 0 blue, 1 green, 2 red, 3 alpha (8-bit BGRA order; 29 maps the same names)
ZVAPI HRESULT ZvDibFillRectChannel(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, int channel,
                                   BYTE value);
#define ZVDIBFLIP_VERTICAL   0x1
#define ZVDIBFLIP_HORIZONTAL 0x2
ZVAPI HRESULT ZvDibFlip(const BITMAPINFOHEADER *frame, void *pixels, int stride, DWORD flags);
ZVAPI HRESULT ZvDibSwapRB(const BITMAPINFOHEADER *frame, void *pixels, int stride);
// Each pixel of rect (null: the whole frame) in dst becomes the mean of the
// source's (2 * radiusX + 1) by (2 * radiusY + 1) pixels around it, the
// frame's edge pixels repeated beyond it; 8-bit means rounded. Frames of one
// type the scalers take (20, 27, 28, 29, 32; else 0x80004001) and size, not
// overlapping in memory, radii 0 to ZVDIBBOX_MAXRADIUS; else E_INVALIDARG.
#define ZVDIBBOX_MAXRADIUS 1000
ZVAPI HRESULT ZvDibBoxFilter(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                             const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect,
                             int radiusX, int radiusY);
// OpenCL forms of the copy family (opencl.dll loaded at run time; see
// YUV_OpenCL_Initialize in video/yuv.h for the codes): results equal to the
// plain forms; HRESULT_FROM_WIN32(ERROR_INVALID_STATE) before Initialize.
// ZvDibCopyOCL scales on the device and makes a 1:1 copy of one type as the
// plain form does; conversions between types and YUV layouts stay with the
// plain forms (ZVERR_UNSUPPORTED_MEDIA).
typedef void(CALLBACK *ZVOPENCLLOG)(const char *text);
ZVAPI HRESULT DibCopy_OpenCL_Initialize(const void *context, ZVOPENCLLOG log);
ZVAPI HRESULT DibCopy_OpenCL_Shutdown();
ZVAPI HRESULT ZvDibSwapRB_OCL(const BITMAPINFOHEADER *frame, void *pixels, int stride);
ZVAPI HRESULT ZvDibFadeToColorOCL(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color,
                                  DWORD flags, float amount);
ZVAPI HRESULT ZvDibFillRectOCL(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color);
ZVAPI HRESULT ZvDibBoxFilterOCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect,
                                int radiusX, int radiusY);
ZVAPI HRESULT ZvDibCopyOCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                           const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect,
                           DWORD flags);
ZVAPI HRESULT ZvDibGetPixel(const BITMAPINFOHEADER *frame, const void *pixels, POINT pos, DWORD *color);
ZVAPI HRESULT ZvDibSetPixel(const BITMAPINFOHEADER *frame, void *pixels, POINT pos, DWORD color);
// Blends towards color by amount (0 leaves, 1 gives the colour).
ZVAPI HRESULT ZvDibFadeToColor(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color,
                               DWORD flags, float amount);

// A table of 32768 bytes for 5-bit red, green, blue to the palette index of
// the frame; free with ZvDibFreeColorQuantizer.
ZVAPI HRESULT ZvDibCreateColorQuantizer(BYTE **table, const BITMAPINFOHEADER *paletteFrame);
ZVAPI void ZvDibFreeColorQuantizer(BYTE *table);
// Maps a 24 or 32-bit source to the 8-bit palette frame dst of the same size.
ZVAPI HRESULT ZvDibQuantizePalette(const BITMAPINFOHEADER *src, const void *srcPixels,
                                   const BITMAPINFOHEADER *dst, void *dstPixels, int paletteSize);

// Gamut tests of a linear colour (blue, green, red, 0 to 1): TRUE when
// outside. The Return forms give the colour with its chroma pulled inside.
ZVAPI BOOL HotCheckNTSCYIQ(const float bgr[3]);
ZVAPI BOOL HotCheckNTSCYUV(const float bgr[3]);
ZVAPI BOOL HotCheckPALYUV(const float bgr[3]);
ZVAPI BOOL HotCheckNTSCYIQReturn(const float bgr[3], float inside[3]);
ZVAPI BOOL HotCheckNTSCYUVReturn(const float bgr[3], float inside[3]);
ZVAPI BOOL HotCheckPALYUVReturn(const float bgr[3], float inside[3]);
