# Writes a 1 GiB wave file of random 16-bit stereo samples at 48 kHz for the
# benchmarks that read or render a large file: bigwave.py PATH
import os, struct, sys
size = 1 << 30
rate, channels, bits = 48000, 2, 16
hdr = b'RIFF' + struct.pack('<I', 36 + size) + b'WAVE'
hdr += b'fmt ' + struct.pack('<IHHIIHH', 16, 1, channels, rate, rate * channels * bits // 8, channels * bits // 8, bits)
hdr += b'data' + struct.pack('<I', size)
block = os.urandom(4 << 20)
with open(sys.argv[1], 'wb') as f:
    f.write(hdr)
    for _ in range(size // len(block)):
        f.write(block)
