// Memory geometry of the YUV layouts, the choice of colour matrix and gamma.
#include "video/yuv.h"
#include <string.h>

namespace {

void SetPlane(ZVYUVPLANES *p, int i, LONGLONG offset, LONGLONG pitch)
{
    p->offset[i] = (int)offset;
    p->pitch[i] = (int)pitch;
    if (p->count < i + 1)
        p->count = i + 1;
}

} // namespace

ZVAPI int ZvYUVImageBytesAndOffsets(const BITMAPINFOHEADER *h, ZVYUVPLANES *planes)
{
    ZVYUVPLANES local;
    ZVYUVPLANES *p = planes ? planes : &local;
    memset(p, 0, sizeof(*p));
    if (!h || h->biWidth <= 0 || h->biHeight == 0)
        return 0;
    LONGLONG w = h->biWidth;
    LONGLONG ht = h->biHeight < 0 ? -(LONGLONG)h->biHeight : h->biHeight;
    LONGLONG luma = w * ht, size = 0;
    switch (ZvGetPixelType(h)) {
    case ZVPT_UYVY:
    case ZVPT_YUYV:
        SetPlane(p, 0, 0, 2 * w);
        size = 2 * luma;
        break;
    case ZVPT_Y210:
        SetPlane(p, 0, 0, 4 * ((w + 1) / 2));
        size = 4 * ((w + 1) / 2) * ht;
        break;
    case ZVPT_V210:
        SetPlane(p, 0, 0, ((w + 47) / 48) * 128);
        size = ((w + 47) / 48) * 128 * ht;
        break;
    case ZVPT_Y41B:
        SetPlane(p, 0, 0, w);
        SetPlane(p, 1, luma, w / 4);
        SetPlane(p, 2, luma + luma / 4, w / 4);
        size = luma + 2 * (luma / 4);
        break;
    case ZVPT_I420:
    case ZVPT_YV12:
        SetPlane(p, 0, 0, w);
        SetPlane(p, 1, luma, w / 2);
        SetPlane(p, 2, luma + luma / 4, w / 2);
        size = luma + 2 * (luma / 4);
        break;
    case ZVPT_YV16:
        SetPlane(p, 0, 0, w);
        SetPlane(p, 1, luma, w / 2);
        SetPlane(p, 2, luma + (w / 2) * ht, w / 2);
        size = luma + 2 * (w / 2) * ht;
        break;
    case ZVPT_YV24:
        SetPlane(p, 0, 0, w);
        SetPlane(p, 1, luma, w);
        SetPlane(p, 2, 2 * luma, w);
        size = 3 * luma;
        break;
    case ZVPT_NV12:
        SetPlane(p, 0, 0, w);
        SetPlane(p, 1, luma, w);
        size = luma + luma / 2;
        break;
    case ZVPT_P010:
    case ZVPT_P012:
    case ZVPT_PL10:
        SetPlane(p, 0, 0, 2 * w);
        SetPlane(p, 1, 2 * luma, 4 * ((w + 1) / 2));
        size = 2 * luma + 4 * ((w + 1) / 2) * (ht / 2);
        break;
    case ZVPT_P210:
    case ZVPT_P212:
    case ZVPT_P216:
        SetPlane(p, 0, 0, 2 * w);
        SetPlane(p, 1, 2 * luma, 4 * (w / 2));
        size = 2 * luma + 4 * (w / 2) * ht;
        break;
    case ZVPT_P410:
    case ZVPT_P412:
        SetPlane(p, 0, 0, 2 * w);
        SetPlane(p, 1, 2 * luma, 2 * w);
        SetPlane(p, 2, 4 * luma, 2 * w);
        size = 6 * luma;
        break;
    case ZVPT_A410:
        SetPlane(p, 0, 0, 2 * w);
        SetPlane(p, 1, 2 * luma, 2 * w);
        SetPlane(p, 2, 4 * luma, 2 * w);
        SetPlane(p, 3, 6 * luma, 2 * w);
        size = 8 * luma;
        break;
    default:
        return 0;
    }
    if (size > 0x7FFFFFFF) {
        memset(p, 0, sizeof(*p));
        return 0;
    }
    return (int)size;
}

ZVAPI int ZvYUV_ResolveMatrix(int selector, int width, int height)
{
    switch (selector) {
    case 1: case ZVYUV_BT601: return ZVYUV_BT601;
    case 2: case ZVYUV_BT709: return ZVYUV_BT709;
    case 3: case ZVYUV_BT2020: return ZVYUV_BT2020;
    }
    if (height < 0)
        height = -height;
    return (height < 720 && width >= 704 && width <= 720) ? ZVYUV_BT601 : ZVYUV_BT709;
}

ZVAPI double ZvYUV_GammaRatio(double srcGamma, double dstGamma)
{
    double g[2] = {srcGamma, dstGamma};
    for (double &v : g) {
        if (v == 0)
            v = 2.2222222222222223;
        v = v < 0.5 ? 0.5 : v > 4.0 ? 4.0 : v;
    }
    double r = g[0] / g[1];
    return (r >= 0.999 && r <= 1.001) ? 1.0 : r;
}
