# SPDX-License-Identifier: Apache-2.0
# Set points and picture with -e.
set terminal pngcairo size 800,400 font "sans,10"
set output picture
set title "commandtobrenvellis: cost by the number of commands in the file"
set xlabel "ReportStatus commands in the file"
set logscale x
set format x "%.0f"
set ylabel "CPU per command after the start, µs"
set yrange [0:*]
set y2label "peak memory, KiB"
set y2range [0:10000]
set ytics nomirror
set y2tics
set grid
set key bottom right
plot points using 1:($1 >= 100 ? $2 : 1/0) with linespoints lw 2 pt 7 title "CPU per command (from 100 commands)", \
     points using 1:3 axes x1y2 with linespoints lw 2 pt 5 title "peak memory"
