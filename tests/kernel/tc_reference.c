/* Native Linux program, built by tc_reference.sh (never part of the Windows
 * test executable): writes the timecode text of every frame of 24 hours at
 * 29.97 drop frame, one line per frame, as an independent media library
 * formats it. */
#ifndef _WIN32
#include <stdio.h>
#include <libavutil/timecode.h>

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s <output file>\n", argv[0]);
        return 2;
    }
    AVTimecode tc;
    AVRational rate = {30000, 1001};
    if (av_timecode_init(&tc, rate, AV_TIMECODE_FLAG_DROPFRAME, 0, NULL) < 0) {
        fprintf(stderr, "timecode setup failed\n");
        return 1;
    }
    FILE *out = fopen(argv[1], "wb");
    if (!out)
        return 1;
    char text[AV_TIMECODE_STR_SIZE];
    for (int frame = 0; frame < 2589408; frame++)
        fprintf(out, "%s\n", av_timecode_make_string(&tc, text, frame));
    return fclose(out) == 0 ? 0 : 1;
}
#endif
