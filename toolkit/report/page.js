"use strict";
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const run = data.run;
  const byId = (id) => document.getElementById(id);
  const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

  function element(tag, text, className) {
    const result = document.createElement(tag);
    if (text !== undefined) result.textContent = text;
    if (className) result.className = className;
    return result;
  }

  function fillList(section, lines) {
    section.hidden = lines.length === 0;
    section.querySelector("ul").append(...lines.map((line) => element("li", line)));
  }

  const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];
  const percent = (share) => `${(100 * share).toFixed(0)} %`;

  // Stretches of frames as "0–3, 98–102".
  const stretches = (list) => list.map(([a, b]) => (a === b ? `${a}` : `${a}–${b}`)).join(", ");

  function showVerdict() {
    const { kind, sentence, advice } = data.verdict;
    const section = byId("verdict");
    section.className = kind;
    section.querySelector(".sentence").textContent = sentence;
    section.querySelector(".advice").hidden = advice === "";
    section.querySelector(".advice b").textContent = advice;
  }

  // Bytes of a "data:" URL as an address that every browser plays from.
  function blobAddress(dataUrl) {
    const [head, base64] = dataUrl.split(",");
    const bytes = Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
    return URL.createObjectURL(new Blob([bytes], { type: head.slice(5, head.indexOf(";")) }));
  }

  function showClip() {
    const { video, lack, width, height, split, start, seconds } = data.clip;
    const section = byId("clip");
    const message = section.querySelector(".lack");
    const sayLack = (text) => {
      message.hidden = false;
      message.textContent = `No clip: ${text}.`;
      section.querySelector(".player").hidden = true;
    };
    if (!video) return sayLack(lack);
    const player = section.querySelector(".player");
    player.hidden = false;
    player.style.setProperty("--aspect", `${width} / ${height}`);
    player.style.setProperty("--split", `${100 * split}%`);
    player.style.maxWidth = `min(100%, calc(80vh * ${width / height}))`;
    const shown = player.querySelector("video");
    shown.setAttribute("aria-label", "The original on the left, the stabilized clip on the right");
    shown.addEventListener("error", () => sayLack("this browser does not play it"));
    shown.src = blobAddress(video);
    const isWhole = data.shake.before.time.at(-1) < seconds;
    player.querySelector("figcaption").textContent = isWhole
      ? "The whole clip."
      : `The ${seconds.toFixed(1)} s that shake most, from ${start.toFixed(1)} s on.`;
    // Shaking pictures that start by themselves make some readers sick.
    if (!matchMedia("(prefers-reduced-motion: reduce)").matches) shown.play().catch(() => {});
  }

  function showHead() {
    byId("title").textContent = data.stabilized;
    byId("subtitle").textContent = `made from ${data.original}`;
    document.title = `${data.stabilized}: stabilization report`;
    const warnings = run ? [...run.warnings] : [];
    data.lost.forEach((lost, i) => {
      const clip = i === 0 ? data.original : data.stabilized;
      if (lost > 0) warnings.push(`${clip}: the motion of ${lost} frames could not be measured.`);
    });
    const without = run ? run.without.reduce((sum, [a, b]) => sum + b - a + 1, 0) : 0;
    if (without > 0) {
      warnings.push(`${without} of ${run.frames} frames have no orientation and were only cropped: ` +
                    `${stretches(run.without)} (counted from 0).`);
    }
    fillList(byId("warnings"), warnings);

    const tile = (value, label) => {
      const box = element("div", undefined, "tile");
      box.append(element("b", value), element("span", label));
      byId("tiles").append(box);
    };
    const measure = (key) => data.measures.find((row) => row.key === key);
    const shake = measure("shake_px").remaining;
    tile(shake === null ? "–" : percent(shake), "of the shake is left");
    tile(`${measure("cropping_ratio_percent").after} %`, "of the picture's area is kept");
    if (!run || run.frames === 0) return;
    tile(`${without} of ${run.frames}`, "frames without an orientation");
    tile(`${Math.max(0, ...run.margin).toFixed(0)} %`, "of the crop margin used at most");
    tile(`${median(run.milliseconds).toFixed(1)} ms`, "for a frame, in the median");
  }

  function showPictures() {
    const section = byId("pictures");
    section.hidden = data.pictures.length === 0;
    const wipe = section.querySelector(".wipe");
    const choices = section.querySelector(".choices");
    wipe.style.setProperty("--aspect", `${data.width} / ${data.height}`);
    wipe.style.maxWidth = `calc(80vh * ${data.width / data.height})`;
    const slider = wipe.querySelector("input");
    slider.addEventListener("input", () => wipe.style.setProperty("--share", `${slider.value}%`));
    data.pictures.forEach((pair, i) => {
      const button = element("button", pair.label);
      button.type = "button";
      button.addEventListener("click", () => {
        wipe.querySelector(".before").src = pair.before;
        wipe.querySelector(".after").src = pair.after;
        for (const other of choices.children) other.setAttribute("aria-pressed", other === button);
      });
      choices.append(button);
      if (i === 0) button.click();
    });
  }

  // All plots; they are drawn again where the page's colours change.
  const plots = [];

  // Marks frames without an orientation.
  function shade(plot) {
    if (!run) return;
    const half = 0.5 / (run.time.length / (run.time[run.time.length - 1] || 1));
    const { ctx, bbox } = plot;
    ctx.save();
    ctx.fillStyle = colour("--lack");
    for (const [first, last] of run.without) {
      const clamped = (t) => Math.min(Math.max(plot.valToPos(t, "x", true), bbox.left), bbox.left + bbox.width);
      const left = clamped(run.time[first] - half);
      ctx.fillRect(left, bbox.top, clamped(run.time[last] + half) - left, bbox.height);
    }
    ctx.restore();
  }

  // One plot: `lines` are [name, CSS variable of the colour, values], over `time` in seconds; `range`
  // is uPlot's. The caption shows names, and values under the pointer.
  function addPlot(section, { title, unit, time, lines, digits, range, shaded, group }) {
    const figure = element("figure");
    const caption = element("figcaption");
    caption.append(element("b", `${title}, ${unit}`));
    const keys = lines.map(([name, line]) => {
      const key = element("span", name, "key");
      key.style.setProperty("--colour", `var(${line})`);
      caption.append(key);
      return key;
    });
    const canvas = element("div");
    figure.append(caption, canvas);
    section.querySelector(".plots").append(figure);

    const axis = (label, size) => ({
      label,
      labelSize: 20,
      size,
      stroke: () => colour("--soft"),
      font: "12px system-ui, sans-serif",
      labelFont: "12px system-ui, sans-serif",
      grid: { stroke: () => colour("--line"), width: 1 },
      ticks: { stroke: () => colour("--line"), width: 1 },
    });
    const plot = new uPlot({
      width: Math.max(280, figure.clientWidth),
      height: 190,
      legend: { show: false },
      cursor: { sync: { key: group }, drag: { x: true, y: false } },
      scales: { x: { time: false }, y: range ? { range } : {} },
      axes: [axis("time, s", 34), axis(`${title}, ${unit}`, 52)],
      series: [{}, ...lines.map(([label, line]) => ({
        label,
        stroke: () => colour(line),
        width: 1.75,
        spanGaps: false,
        points: { show: false },
      }))],
      hooks: {
        drawClear: shaded ? [shade] : [],
        setCursor: [(self) => keys.forEach((key, i) => {
          const value = self.cursor.idx == null ? null : self.data[i + 1][self.cursor.idx];
          key.textContent = lines[i][0] + (value == null ? "" : ` ${value.toFixed(digits)}`);
        })],
      },
    }, [time, ...lines.map((line) => line[2])], canvas);
    const drawing = canvas.querySelector("canvas");
    drawing.setAttribute("role", "img");
    drawing.setAttribute("aria-label", `${title} in ${unit} over time: ${lines.map((line) => line[0]).join(", ")}`);
    new ResizeObserver(() => plot.setSize({ width: Math.max(280, figure.clientWidth), height: 190 })).observe(figure);
    plots.push(plot);
  }

  function showRun() {
    byId("no-run").hidden = Boolean(run);
    if (!run) return;
    for (const id of ["path", "effort", "run"]) byId(id).hidden = false;
    const group = "run";
    const axes = [["Pan to the right", "pan"], ["Tilt up", "tilt"], ["Roll clockwise", "roll"]];
    for (const [title, key] of axes) {
      addPlot(byId("path"), {
        title, unit: "°", time: run.time, digits: 2, shaded: true, group,
        lines: [["measured", "--before", run.measured[key]], ["stabilized", "--after", run.corrected[key]]],
      });
    }
    byId("effort-hint").textContent =
      "The margin is what the crop leaves between the picture shown and the border of the frame: at " +
      "100 % a corner touches the border. Time is what stabilizing a frame took; " +
      `the whole clip took ${run.seconds.toFixed(1)} s with decoding and encoding.`;
    const fromZero = (least) => (self, low, high) => [0, Math.max(least, 1.08 * high)];
    addPlot(byId("effort"), {
      title: "Margin used", unit: "%", time: run.time, digits: 1, shaded: true, group,
      range: fromZero(100), lines: [["margin used", "--after", run.margin]],
    });
    if (run.zoom) {
      addPlot(byId("effort"), {
        title: "Zoom", unit: "×", time: run.time, digits: 3, shaded: true, group,
        lines: [["zoom", "--after", run.zoom]],
      });
    }
    addPlot(byId("effort"), {
      title: "Time", unit: "ms", time: run.time, digits: 2, shaded: false, group,
      range: fromZero(1), lines: [["time for a frame", "--after", run.milliseconds]],
    });
    const rows = run.parameters.map(([name, value]) => {
      const row = element("tr");
      const head = element("th", name);
      head.scope = "row";
      row.append(head, element("td", value));
      return row;
    });
    byId("parameters").tBodies[0].append(...rows);
    byId("snippet").textContent = run.snippet;
    fillList(byId("notes"), run.notes);
  }

  // Columns of every frame: name, unit, digits, values.
  function frameColumns() {
    const frames = run.time.map((_, i) => i);
    const columns = [["frame", "", 0, frames], ["time", "s", 3, run.time]];
    for (const axis of ["pan", "tilt", "roll"]) {
      columns.push([`${axis} measured`, "°", 3, run.measured[axis]]);
      columns.push([`${axis} stabilized`, "°", 3, run.corrected[axis]]);
    }
    columns.push(["margin used", "%", 1, run.margin]);
    if (run.zoom) columns.push(["zoom", "×", 4, run.zoom]);
    columns.push(["time for it", "ms", 2, run.milliseconds]);
    return columns;
  }

  const cellText = (value, digits) => (value === null ? "" : value.toFixed(digits));

  function csvOf(columns) {
    const units = { "°": "deg", "%": "percent", "×": "factor" };
    const names = columns.map(([name, unit]) => (unit ? `${name} ${units[unit] ?? unit}` : name).replaceAll(" ", "_"));
    const rows = run.time.map((_, i) => columns.map(([, , digits, values]) => cellText(values[i], digits + 2)));
    rows.forEach((row, i) => { row[0] = String(i); });
    return [names, ...rows].map((row) => row.join(",")).join("\n") + "\n";
  }

  // A browser cannot show a table of every frame of an hour.
  const mostRows = 2000;

  function fillFrameTable(section, columns) {
    const step = Math.ceil(run.frames / mostRows);
    const note = section.querySelector("details .hint");
    note.hidden = step === 1;
    note.textContent = `Every ${step}th frame; the CSV has all.`;
    section.querySelector("thead tr").append(...columns.map(([name, unit]) => {
      const head = element("th", unit ? `${name}, ${unit}` : name);
      head.scope = "col";
      return head;
    }));
    const body = section.querySelector("tbody");
    for (let i = 0; i < run.frames; i += step) {
      const row = element("tr");
      columns.forEach(([, , digits, values], column) => {
        const cell = element(column === 0 ? "th" : "td", cellText(values[i], digits) || "–");
        if (column === 0) cell.scope = "row";
        row.append(cell);
      });
      body.append(row);
    }
  }

  function showFrames() {
    if (!run || run.frames === 0) return;
    const section = byId("frames");
    section.hidden = false;
    const columns = frameColumns();
    const link = section.querySelector("a");
    link.href = URL.createObjectURL(new Blob([csvOf(columns)], { type: "text/csv" }));
    link.download = data.stabilized.replace(/\.[^.]*$/, "") + ".csv";
    // Filled when it is first opened.
    section.querySelector("details").addEventListener("toggle", () => fillFrameTable(section, columns), { once: true });
  }

  function showShake() {
    const { before, after } = data.shake;
    byId("shake-hint").textContent =
      `What the picture as a whole moves faster than ${data.cutoff} Hz, found by following its ` +
      "features from frame to frame; in pixels of the original's size." +
      (data.turned ? ` The recording is shown turned by ${data.turned}°, as players show it: directions are those of ` +
       "the upright picture." : "");
    const [time, ...rows] = uPlot.join([
      [before.time, before.x, before.y, before.rotation],
      [after.time, after.x, after.y, after.rotation],
    ]);
    const parts = [["Across", "px", 2], ["Down", "px", 2], ["Rotation", "°", 3]];
    parts.forEach(([title, unit, digits], i) => addPlot(byId("shake"), {
      title, unit, time, digits, group: "shake",
      lines: [["original", "--before", rows[i]], ["stabilized", "--after", rows[i + 3]]],
    }));
  }

  function showMeasures() {
    for (const { label, meaning, before, after, remaining } of data.measures) {
      const row = element("tr");
      const head = element("th", label);
      head.scope = "row";
      head.append(element("small", meaning));
      row.append(head, element("td", before), element("td", after),
                 element("td", remaining === null ? "" : percent(remaining)));
      byId("measures").querySelector("tbody").append(row);
    }
  }

  showVerdict();
  showHead();
  showClip();
  showPictures();
  showRun();
  showFrames();
  showShake();
  showMeasures();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
    for (const plot of plots) plot.redraw(false);
  });
})();
