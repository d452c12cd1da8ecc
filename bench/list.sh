#!/bin/sh
# List container and grouped number text against their peers.
$ZV_RUN "$ZV_BIN/bench_list.exe"
