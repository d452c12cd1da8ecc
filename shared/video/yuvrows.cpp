// Rows of the YUV layouts as sample arrays, coefficient sets, the row fork.
#include "video/yuvrows.h"
#include "zvkernel.h"
#include <math.h>
#include <string.h>

namespace zvyuv {

namespace {

DWORD g_cpuOverride = 0xFFFFFFFFu;

} // namespace

DWORD CpuWord()
{
    return g_cpuOverride != 0xFFFFFFFFu ? (g_cpuOverride & ZvGetCPUSupport(0)) : ZvGetCPUSupport(0);
}

bool UseAvx2(DWORD cpuWord)
{
    // the word has one bit for the wide unit; AVX2 itself is asked of the
    // processor (the compiler's check includes the system's register saving)
    static const bool has = (__builtin_cpu_init(), __builtin_cpu_supports("avx2") != 0);
    return (cpuWord & 0x840) == 0x840 && has;
}

bool Describe(Frame *f, const BITMAPINFOHEADER *h, const void *const planes[3], const int pitches[3],
              const void *image)
{
    memset(f, 0, sizeof(*f));
    ZVYUVPLANES geo;
    ZVPIXELATTRIBS a;
    f->type = ZvGetPixelType(h);
    if (f->type < 64 || !ZvYUVImageBytesAndOffsets(h, &geo) ||
        FAILED(ZvPixelTypeToBitAttribs(f->type, nullptr, nullptr, &a, nullptr)))
        return false;
    f->width = h->biWidth;
    f->height = h->biHeight < 0 ? -h->biHeight : h->biHeight;
    f->sx = a.chromaShiftX;
    f->sy = a.chromaShiftY;
    f->bits = a.sampleBits;
    f->bytes = a.sampleBytes == 4 ? 2 : a.sampleBytes;
    f->down = (f->bytes == 2 && f->type != ZVPT_PL10) ? 16 - f->bits : 0;
    switch (f->type) {
    case ZVPT_UYVY: f->kind = PACKED8; break;
    case ZVPT_YUYV: f->kind = PACKED8; f->lumaFirst = 1; break;
    case ZVPT_Y210: f->kind = PACKED16; f->lumaFirst = 1; break;
    case ZVPT_V210: f->kind = V210; break;
    case ZVPT_NV12: case ZVPT_P010: case ZVPT_P012: case ZVPT_PL10:
    case ZVPT_P210: case ZVPT_P212: case ZVPT_P216:
        f->kind = SEMIPLANAR;
        break;
    default:
        f->kind = PLANAR;
        f->vFirst = f->type == ZVPT_YV12 || f->type == ZVPT_YV16 || f->type == ZVPT_YV24;
        break;
    }
    // chroma samples the geometry holds: pitch-bound for planes, pairs for
    // packed rows
    if (f->kind == PLANAR)
        f->cw = geo.pitch[1] / f->bytes;
    else if (f->kind == SEMIPLANAR)
        f->cw = geo.pitch[1] / (2 * f->bytes);
    else
        f->cw = (f->width + 1) / 2;
    f->ch = f->height >> f->sy;
    // planes not given follow the first by the layout's offsets
    const BYTE *base = (const BYTE *)(image ? image : (planes ? planes[0] : nullptr));
    for (int i = 0; i < geo.count; ++i) {
        const void *p = planes && planes[i] ? planes[i] : (base ? base + geo.offset[i] : nullptr);
        if (!p)
            return false;
        f->plane[i] = (BYTE *)p;
        f->pitch[i] = pitches && pitches[i] ? pitches[i] : geo.pitch[i];
    }
    return true;
}

namespace {

inline int ChromaIndex(const Frame &f, int x)
{
    int c = x >> f.sx;
    return c < f.cw ? c : f.cw - 1;
}

template <typename T>
void FetchPlanar(const Frame &f, int row, int x0, int n, int32_t *y, int32_t *u, int32_t *v)
{
    const T *py = (const T *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    const int d = f.down, mid = 1 << (f.bits - 1);
    for (int i = 0; i < n; ++i)
        y[i] = py[x0 + i] >> d;
    int crow = row >> f.sy;
    if (crow >= f.ch)
        crow = f.ch - 1;
    if (f.cw <= 0 || crow < 0) {
        for (int i = 0; i < n; ++i)
            u[i] = v[i] = mid;
        return;
    }
    if (f.kind == SEMIPLANAR) {
        const T *pc = (const T *)(f.plane[1] + (LONGLONG)crow * f.pitch[1]);
        for (int i = 0; i < n; ++i) {
            int c = ChromaIndex(f, x0 + i);
            u[i] = pc[2 * c] >> d;
            v[i] = pc[2 * c + 1] >> d;
        }
        return;
    }
    const T *pu = (const T *)(f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1]);
    const T *pv = (const T *)(f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2]);
    for (int i = 0; i < n; ++i) {
        int c = ChromaIndex(f, x0 + i);
        u[i] = pu[c] >> d;
        v[i] = pv[c] >> d;
    }
}

// Packed 4:2:2: groups of Y0 U Y1 V (or U Y0 V Y1). An odd last pixel has
// half a group: its luma and U are there, V comes from the pair before.
template <typename T>
void FetchPacked(const Frame &f, int row, int x0, int n, int32_t *y, int32_t *u, int32_t *v)
{
    const T *p = (const T *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    const int d = f.down, mid = 1 << (f.bits - 1);
    const int iy = f.lumaFirst ? 0 : 1, iu = f.lumaFirst ? 1 : 0, iv = f.lumaFirst ? 3 : 2;
    const int pairs = f.width / 2;
    for (int i = 0; i < n; ++i) {
        int x = x0 + i, k = x >> 1;
        const T *g = p + 4 * k;
        if (k < pairs) {
            y[i] = g[iy + 2 * (x & 1)] >> d;
            u[i] = g[iu] >> d;
            v[i] = g[iv] >> d;
        } else {
            y[i] = g[iy] >> d;
            u[i] = g[iu] >> d;
            v[i] = k > 0 ? g[iv - 4] >> d : mid;
        }
    }
}

void FetchV210(const Frame &f, int row, int x0, int n, int32_t *y, int32_t *u, int32_t *v)
{
    const DWORD *p = (const DWORD *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    for (int i = 0; i < n; ++i) {
        int x = x0 + i, g = x / 6, k = x % 6;
        const DWORD *w = p + 4 * g;
        static const BYTE yw[6] = {0, 1, 1, 2, 3, 3}, ys[6] = {10, 0, 20, 10, 0, 20};
        static const BYTE uw[3] = {0, 1, 2}, us[3] = {0, 10, 20};
        static const BYTE vw[3] = {0, 2, 3}, vs[3] = {20, 0, 10};
        int c = k >> 1;
        y[i] = (w[yw[k]] >> ys[k]) & 0x3FF;
        u[i] = (w[uw[c]] >> us[c]) & 0x3FF;
        v[i] = (w[vw[c]] >> vs[c]) & 0x3FF;
    }
}

template <typename T>
void StorePlanar(const Frame &f, int row, const int32_t *y, const int32_t *u, const int32_t *v)
{
    T *py = (T *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    const int up = f.type == ZVPT_PL10 ? 0 : f.down;
    for (int i = 0; i < f.width; ++i)
        py[i] = (T)(y[i] << up);
    if (!u)
        return;
    int crow = row >> f.sy;
    if (f.kind == SEMIPLANAR) {
        T *pc = (T *)(f.plane[1] + (LONGLONG)crow * f.pitch[1]);
        for (int c = 0; c < f.cw; ++c) {
            pc[2 * c] = (T)(u[c] << up);
            pc[2 * c + 1] = (T)(v[c] << up);
        }
        return;
    }
    T *pu = (T *)(f.plane[f.vFirst ? 2 : 1] + (LONGLONG)crow * f.pitch[f.vFirst ? 2 : 1]);
    T *pv = (T *)(f.plane[f.vFirst ? 1 : 2] + (LONGLONG)crow * f.pitch[f.vFirst ? 1 : 2]);
    for (int c = 0; c < f.cw; ++c) {
        pu[c] = (T)(u[c] << up);
        pv[c] = (T)(v[c] << up);
    }
}

template <typename T>
void StorePacked(const Frame &f, int row, const int32_t *y, const int32_t *u, const int32_t *v)
{
    T *p = (T *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    const int up = f.down;
    const int iy = f.lumaFirst ? 0 : 1, iu = f.lumaFirst ? 1 : 0, iv = f.lumaFirst ? 3 : 2;
    for (int k = 0; k < f.width / 2; ++k) {
        T *g = p + 4 * k;
        g[iy] = (T)(y[2 * k] << up);
        g[iy + 2] = (T)(y[2 * k + 1] << up);
        g[iu] = (T)(u[k] << up);
        g[iv] = (T)(v[k] << up);
    }
    if (f.width & 1) {
        T *g = p + 4 * (f.width / 2);
        g[iy] = (T)(y[f.width - 1] << up);
        g[iu] = (T)(u[f.width / 2] << up);
    }
}

void StoreV210(const Frame &f, int row, const int32_t *y, const int32_t *u, const int32_t *v)
{
    DWORD *p = (DWORD *)(f.plane[0] + (LONGLONG)row * f.pitch[0]);
    memset(p, 0, f.pitch[0]);
    int groups = (f.width + 5) / 6;
    for (int g = 0; g < groups; ++g) {
        int32_t yy[6], uu[3], vv[3];
        for (int k = 0; k < 6; ++k) {
            int x = 6 * g + k;
            yy[k] = x < f.width ? y[x] : 0;
        }
        for (int k = 0; k < 3; ++k) {
            int c = 3 * g + k;
            uu[k] = c < f.cw ? u[c] : 0;
            vv[k] = c < f.cw ? v[c] : 0;
        }
        DWORD *w = p + 4 * g;
        w[0] = uu[0] | (yy[0] << 10) | (vv[0] << 20);
        w[1] = yy[1] | (uu[1] << 10) | (yy[2] << 20);
        w[2] = vv[1] | (yy[3] << 10) | (uu[2] << 20);
        w[3] = yy[4] | (vv[2] << 10) | (yy[5] << 20);
    }
}

} // namespace

void FetchRow(const Frame &f, int row, int x0, int n, int32_t *y, int32_t *u, int32_t *v)
{
    switch (f.kind) {
    case PACKED8: FetchPacked<BYTE>(f, row, x0, n, y, u, v); break;
    case PACKED16: FetchPacked<WORD>(f, row, x0, n, y, u, v); break;
    case V210: FetchV210(f, row, x0, n, y, u, v); break;
    default:
        if (f.bytes == 1)
            FetchPlanar<BYTE>(f, row, x0, n, y, u, v);
        else
            FetchPlanar<WORD>(f, row, x0, n, y, u, v);
        break;
    }
}

void StoreRow(const Frame &f, int row, const int32_t *y, const int32_t *u, const int32_t *v)
{
    switch (f.kind) {
    case PACKED8: StorePacked<BYTE>(f, row, y, u, v); break;
    case PACKED16: StorePacked<WORD>(f, row, y, u, v); break;
    case V210: StoreV210(f, row, y, u, v); break;
    default:
        if (f.bytes == 1)
            StorePlanar<BYTE>(f, row, y, u, v);
        else
            StorePlanar<WORD>(f, row, y, u, v);
        break;
    }
}

namespace {

struct Matrix {
    double kr, kg, kb;
    double bu, gv, gu, rv;               // YUV to RGB
    double ur, ug, ub, vr, vg, vb;       // RGB to YUV chroma rows
};

const Matrix &MatrixOf(int standard)
{
    static const Matrix m601 = {0.299, 0.587, 0.114, 1.772, -0.7141, -0.3441, 1.402,
                                -0.172552, -0.338864, 0.511416, 0.511416, -0.428259, -0.083156};
    static const Matrix m709 = {0.2126, 0.7152, 0.0722, 1.8556, -0.4681, -0.1873, 1.5748,
                                -0.117216, -0.394199, 0.511416, 0.511416, -0.46457, -0.046846};
    static const Matrix m2020 = {0.2627, 0.678, 0.0593, 1.8814, -0.5714, -0.1646, 1.4746,
                                 -0.142787, -0.368628, 0.511416, 0.511416, -0.470298, -0.041118};
    return standard == ZVYUV_BT601 ? m601 : standard == ZVYUV_BT2020 ? m2020 : m709;
}

inline int32_t Q(double v, int shift)
{
    return (int32_t)lround(v * (double)(1 << shift));
}

} // namespace

void MakeDecode(Decode *d, int standard, bool limited, int bits)
{
    const Matrix &m = MatrixOf(standard);
    const int e = bits - 8;
    double wordGain = 1.0;   // deep layouts: the tables' gain factors
    if (e > 0)
        wordGain = limited ? 1.0 / (1 << e) : 255.0 / ((1 << bits) - 1);
    double gy = (limited ? 255.0 / 219.0 : 1.0) * wordGain;
    double gc = (limited ? 255.0 / 224.0 : 219.0 / 224.0) * wordGain;
    d->yoff = limited ? (16 << e) : 0;
    d->mid = 128 << e;
    d->shift = 13 + e;
    d->cy = Q(gy, d->shift);
    d->crv = Q(m.rv * gc, d->shift);
    d->cgu = Q(m.gu * gc, d->shift);
    d->cgv = Q(m.gv * gc, d->shift);
    d->cbu = Q(m.bu * gc, d->shift);
    d->eight = bits == 8;
    if (d->eight) {
        d->ky8 = (uint16_t)Q(gy, 14);
        d->kr8 = (uint16_t)Q(m.rv * gc, 14);
        d->kgu8 = (uint16_t)Q(-m.gu * gc, 14);
        d->kgv8 = (uint16_t)Q(-m.gv * gc, 14);
        d->kb8 = (uint16_t)Q(m.bu * gc, 14);
        // at neutral chroma every channel is (Yt - Yt(yoff) + 32) >> 6
        int yt0 = (d->yoff * d->ky8) >> 8;
        d->br8 = (int16_t)(32 - yt0 - ((128 * d->kr8) >> 8));
        d->bg8 = (int16_t)(32 - yt0 + ((128 * d->kgu8) >> 8) + ((128 * d->kgv8) >> 8));
        d->bb8 = (int16_t)(32 - yt0 - ((128 * d->kb8) >> 8));
    }
    // float destination: 0 to 1
    double fy = (limited ? 1.0 / 219.0 : 1.0 / 255.0) * wordGain;
    double fc = (limited ? 1.0 / 224.0 : 219.0 / (224.0 * 255.0)) * wordGain;
    d->fy = (float)fy;
    d->frv = (float)(m.rv * fc);
    d->fgu = (float)(m.gu * fc);
    d->fgv = (float)(m.gv * fc);
    d->fbu = (float)(m.bu * fc);
}

void MakeEncode(Encode *en, int standard, bool limited, int bits)
{
    const Matrix &m = MatrixOf(standard);
    const int e = bits - 8;
    const double g = limited ? 219.0 / 255.0 : 1.0;
    const int s = 14 + e;
    en->k8r = en->k8g = en->k8b = 0;   // deeper outputs weigh luma as above
    en->kyr = Q(m.kr * g, s);
    en->kyg = Q(m.kg * g, s);
    en->kyb = Q(m.kb * g, s);
    en->kur = Q(m.ur * g, s);
    en->kug = Q(m.ug * g, s);
    en->kub = Q(m.ub * g, s);
    en->kvr = Q(m.vr * g, s);
    en->kvg = Q(m.vg * g, s);
    en->kvb = Q(m.vb * g, s);
    if (bits == 8) {
        // 8-bit luma weights: each rounded down, then the units short of
        // round(256 g) to the largest remainders
        const double w[3] = {m.kr * g * 256, m.kg * g * 256, m.kb * g * 256};
        int32_t k8[3], left = (int32_t)lround(256 * g);
        for (int i = 0; i < 3; ++i)
            left -= k8[i] = (int32_t)floor(w[i]);
        for (; left > 0; --left) {
            int best = 0;
            for (int i = 1; i < 3; ++i)
                if (w[i] - k8[i] > w[best] - k8[best])
                    best = i;
            k8[best]++;
        }
        en->k8r = k8[0];
        en->k8g = k8[1];
        en->k8b = k8[2];
        // G's chroma weights make the rows sum to zero, so the vector bodies
        // may weigh (B - G) and (R - G)
        en->kug = -en->kur - en->kub;
        en->kvg = -en->kvr - en->kvb;
    }
    en->yoff = (limited ? 16 : 0) << e;
    en->mid = 128 << e;
    en->maxv = (1 << bits) - 1;
}

} // namespace zvyuv

ZVAPI void ZvVideo_SetKernelOverride(DWORD cpuWord, int threads)
{
    zvyuv::g_cpuOverride = cpuWord;
    zvyuv::SetThreadOverride(threads);
}
