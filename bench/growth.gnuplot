# gnuplot -e "points='...'; picture='...'": plots what the programs print with --growth.
# Columns: series, x, library ns, bare ns, plain way ns, ratio, its p10, its p90. Latency has p50 as
# library and p99 as plain way.
set terminal pngcairo size 1950,900 font "DejaVu Sans,11" background "#ffffff"
set output picture
set datafile separator "\t"
set multiplot layout 2,4 columnsfirst margins 0.05,0.985,0.08,0.94 spacing 0.055,0.11

set style line 1 lc rgb "#1f5fa8" lw 2.5 pt 7 ps 0.7
set style line 2 lc rgb "#8a8a8a" lw 2 pt 5 ps 0.6
set style line 3 lc rgb "#c8641e" lw 1.8 pt 9 ps 0.7
set style line 4 lc rgb "#2e8b57" lw 1.5 dt 2
set style fill transparent solid 0.22 noborder
set grid lc rgb "#e4e4e4" lt 1
set border 3 lc rgb "#606060"
set tics nomirror
set key top left reverse Left samplen 2.5 spacing 1.15
set yrange [0:*]

only(name) = sprintf("< grep '^%s' %s", name, points)

line(x) = a * x + b
a = 0.002
b = 0.1
set fit quiet logfile "/dev/null"

# --- Frame size -----------------------------------------------------------------------
set xrange [0:8.6]
set title "Image reorder over the frame size"
set ylabel "time per frame [us]"
unset xlabel
proportional(x) = p * x
p = 70
fit proportional(x) only("reorder") using 2:($3 / 1000) via p
plot only("reorder") using 2:($5 / 1000) with linespoints ls 3 title "plain way", \
     only("reorder") using 2:($4 / 1000) with linespoints ls 2 title "memcpy to one buffer", \
     only("reorder") using 2:($3 / 1000) with linespoints ls 1 title "library", \
     proportional(x) ls 4 title "proportional"

set title "relative to memcpy"
set xlabel "pixels per frame [million]"
set ylabel "ratio"
set yrange [0:2.5]
plot only("reorder") using 2:7:8 with filledcurves lc rgb "#1f5fa8" title "p10 to p90", \
     only("reorder") using 2:6 with linespoints ls 1 title "library / memcpy", \
     1.2 ls 4 title "goal for the large ones"
set yrange [0:*]

# --- Strips ---------------------------------------------------------------------------
set xrange [0:1200]
set title "Strip pass over the strips per buffer (64 points each)"
unset xlabel
set ylabel "time per buffer [us]"
fit line(x) only("strips") using 2:($3 / 1000) via a, b
plot only("strips") using 2:($4 / 1000) with linespoints ls 2 title "bare walk of the headers", \
     only("strips") using 2:($3 / 1000) with linespoints ls 1 title "library", \
     line(x) ls 4 title sprintf("%.0f ns + %.1f ns per strip", 1000 * b, 1000 * a)

set title "relative to the bare walk"
set xlabel "strips per buffer"
set ylabel "ratio"
set yrange [0:4]
plot only("strips") using 2:7:8 with filledcurves lc rgb "#1f5fa8" title "p10 to p90", \
     only("strips") using 2:6 with linespoints ls 1 title "library / bare walk", \
     1.3 ls 4 title "goal at 1000"
set yrange [0:*]

# --- Points ---------------------------------------------------------------------------
set xrange [0:1450]
set title "Strip pass over the points per strip (50 strips)"
unset xlabel
set ylabel "time per buffer [ns]"
plot only("points") using 2:4 with linespoints ls 2 title "bare walk of the headers", \
     only("points") using 2:3 with linespoints ls 1 title "library"

set title "relative to the bare walk"
set xlabel "points per strip"
set ylabel "ratio"
set yrange [0:4]
plot only("points") using 2:7:8 with filledcurves lc rgb "#1f5fa8" title "p10 to p90", \
     only("points") using 2:6 with linespoints ls 1 title "library / bare walk"
set yrange [0:*]

# --- Deliveries -----------------------------------------------------------------------
set xrange [0:1.65]
set title "Images delivered, free-running"
unset xlabel
set ylabel "time per image [us]"
plot only("delivered") using 2:($4 / 1000) with linespoints ls 2 title "bare DQBUF and QBUF", \
     only("delivered") using 2:($3 / 1000) with linespoints ls 1 title "library"

set title "Dequeue to handler"
set xlabel "pixels per image [million]"
set ylabel "time [us]"
plot only("latency") using 2:($5 / 1000) with linespoints ls 3 title "p99", \
     only("latency") using 2:($3 / 1000) with linespoints ls 1 title "p50"
unset multiplot
