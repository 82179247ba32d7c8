# Draws what framehold_bench has measured on one thread: rendering against the frame's size, and the
# stages of a call against size and delay.
# Usage: gnuplot -e "results='RESULTS.csv'; picture='PICTURE.svg'" bench/performance.gnuplot
set datafile separator comma
set datafile columnheaders
set datafile missing NaN
set terminal svg size 960,860 font "sans-serif,13" background "white" noenhanced
set output picture
set multiplot layout 2,1 margins 0.09,0.66,0.08,0.95 spacing 0.17
set border 3
set tics nomirror
set grid
set key at graph 1.04, graph 1 left top reverse Left samplen 2
set ylabel "milliseconds"
colours = "#4477aa #ee6677 #228833 #ccbb44 #66ccee #aa3377 #222222 #ee8866 #999999 #44bb99 #882255 #997700"
do for [i = 1:words(colours)] { set linetype i linecolor rgb word(colours, i) }

isCold(section) = strcol("section") eq section && column("threads") == 1 && column("ring") > 1

# The names of the cases, each in quotes, in the order in which they were measured.
cases = ""
note(name) = strstrt(cases, name) == 0 ? strlen(cases = cases . name . " ") : 0
stats results using (isCold("rendering") ? note('"' . strcol("case") . '"') : 0) nooutput

set title "Rendering a frame: one thread, cold frames"
set xlabel "luma pixels of the frame, millions"
set logscale xy
set xtics (0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50)
set ytics (0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200)
set autoscale fix
set offsets graph 0.05, graph 0.05, graph 0.05, graph 0.05
megapixels(name) = isCold("rendering") && strcol("case") eq name \
    ? column("width") * column("height") / 1e6 : NaN
plot for [name in cases] results using (megapixels(name)):"ms" \
    with linespoints pointtype 7 pointsize 0.5 linewidth 2 title name

# A bar for each size and delay. Each stage is drawn as the sum up to it, in front of the later ones.
stages = "copy smoothing mapping rendering"
isFirst(row) = isCold("stages") && strcol("case") eq word(stages, 1)
bars = 0
labels = ""
addLabel(row) = strlen(labels = labels . sprintf('%s"%gx%g\ndelay %g" %d', bars > 0 ? ", " : "", \
    column("width"), column("height"), column("delay_frames"), bars = bars + 1))
stats results using (isFirst(0) ? addLabel(0) : 0) nooutput
ms(row) = strlen(strcol("ms")) > 0 ? column("ms") : 0
sumUpTo(stage, name) = (isFirst(0) ? (bar = bar + 1, sum = 0) : 0, \
    strstrt(stages, name) > 0 ? sum = sum + ms(0) : 0, \
    name eq stage ? sum : NaN)

set title "Stages of ZPR_Stabilize: one thread"
unset xlabel
unset logscale
eval "set xtics (" . labels . ")"
set ytics autofreq
set grid noxtics
unset offsets
set xrange [0.4:bars + 0.6]
set yrange [0:*] extend
set style fill solid
set boxwidth 0.6
plot for [i = 4:1:-1] bar = 0, results \
    using (y = isCold("stages") ? sumUpTo(word(stages, i), strcol("case")) : NaN, bar):(y) \
    with boxes linetype i title word(stages, i)
