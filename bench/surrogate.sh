#!/bin/sh
# Reading samples through a surrogate against the same plug-in in process.
$ZV_RUN "$ZV_BIN/bench_surrogate.exe"
