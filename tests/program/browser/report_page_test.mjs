// Opens a report in a headless browser and checks what its reader would see.
// Usage: node report_page_test.mjs BROWSER PAGE SCREENSHOT
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { pathToFileURL } from "node:url";
import { chromium } from "playwright-core";

const [executablePath, page_file, screenshot] = process.argv.slice(2);
const browser = await chromium.launch({
  executablePath,
  args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});
const page = await browser.newPage({ viewport: { width: 1200, height: 900 }, colorScheme: "light" });
const address = pathToFileURL(page_file).href;
const complaints = [];
const requests = [];
page.on("console", (message) => complaints.push(`${message.type()}: ${message.text()}`));
page.on("dialog", (dialog) => { complaints.push(`dialog: ${dialog.message()}`); dialog.dismiss(); });
page.on("pageerror", (error) => complaints.push(`error: ${error}`));
page.on("request", (request) => {
  const url = request.url();
  if (url !== address && !/^(data|blob):/.test(url)) requests.push(url);
});

// Of every plot: its label, and how many pixels of each line's colour it shows.
const readPlots = () => page.evaluate(() => [...document.querySelectorAll(".plots figure")].map((figure) => {
  const canvas = figure.querySelector("canvas");
  const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext("2d", { willReadFrequently: true });
  copy.drawImage(canvas, 0, 0);
  const pixels = copy.getImageData(0, 0, canvas.width, canvas.height).data;
  const lines = [...figure.querySelectorAll(".key")].map((key) => {
    const probe = document.createElement("i");
    probe.style.color = getComputedStyle(key).getPropertyValue("--colour");
    figure.append(probe);
    const wanted = getComputedStyle(probe).color.match(/\d+/g).map(Number);
    probe.remove();
    let count = 0;
    for (let i = 0; i < pixels.length; i += 4) {
      const isLine = pixels[i + 3] > 200 && wanted.every((c, k) => Math.abs(c - pixels[i + k]) < 24);
      if (isLine) ++count;
    }
    return count;
  });
  return { label: canvas.getAttribute("aria-label"), lines };
}));

function checkPlots(plots, expected) {
  assert.equal(plots.length, expected);
  for (const { label, lines } of plots) {
    assert.ok(label && lines.length > 0, label);
    lines.forEach((count, i) => assert.ok(count > 50, `${label}: line ${i} shows ${count} pixels`));
  }
}

// Runs `check` until it passes, for at most ten seconds: a page answers events when it comes to them.
async function eventually(check) {
  const end = Date.now() + 10000;
  for (;;) {
    try {
      return await check();
    } catch (error) {
      if (Date.now() > end) throw error;
      await page.waitForTimeout(50);
    }
  }
}

try {
  await page.goto(address);
  let plots;
  await eventually(async () => checkPlots(plots = await readPlots(), 8));
  console.log(plots.map(({ label, lines }) => `drawn: ${label}: ${lines.join(" and ")} pixels`).join("\n"));

  // The clip plays, and shows more than one picture.
  const clip = page.locator(".player video");
  await page.waitForFunction(() => document.querySelector(".player video").currentTime > 0.2);
  const played = await clip.evaluate((video) => {
    const { readyState, paused, duration, videoWidth, videoHeight } = video;
    return { readyState, paused, duration, videoWidth, videoHeight, box: video.clientWidth / video.clientHeight };
  });
  assert.ok(played.readyState >= 2 && !played.paused && played.duration > 2.5, JSON.stringify(played));
  assert.ok(Math.abs(played.box - played.videoWidth / played.videoHeight) < 0.02, JSON.stringify(played));
  console.log(`clip: ${JSON.stringify(played)}`);

  // The table of frames, and the same as a file.
  await page.locator("summary").click();
  let tableRows = 0;
  await eventually(async () => {
    tableRows = await page.locator("#frames tbody tr").count();
    assert.ok(tableRows > 80, `${tableRows} rows in the table of frames`);
  });
  const [download] = await Promise.all([page.waitForEvent("download"), page.locator("#frames a").click()]);
  const csv = readFileSync(await download.path(), "utf8").trim().split("\n");
  assert.match(csv[0], /^frame,time_s,pan_measured_deg,.*,margin_used_percent,.*time_for_it_ms$/);
  assert.equal(csv.length - 1, tableRows);
  assert.ok(csv.every((row) => row.split(",").length === csv[0].split(",").length));
  console.log(`frames: ${tableRows} rows, ${download.suggestedFilename()}`);

  // The slider moves the edge between the pictures, by mouse and by keyboard.
  const wipe = page.locator(".wipe");
  const edge = async () => (await page.locator(".wipe .edge").boundingBox()).x;
  await wipe.scrollIntoViewIfNeeded();
  const box = await wipe.boundingBox();
  const before = await edge();
  await page.mouse.click(box.x + 0.2 * box.width, box.y + 0.5 * box.height);
  let clicked;
  await eventually(async () => {
    clicked = await edge();
    assert.ok(Math.abs(clicked - (box.x + 0.2 * box.width)) < 0.03 * box.width, `${clicked} after a click`);
  });
  await page.keyboard.press("ArrowRight");
  await eventually(async () => assert.ok((await edge()) > clicked, "the arrow key did not move the slider"));
  console.log(`slider: edge at ${before.toFixed(0)}, after a click at ${clicked.toFixed(0)} px`);
  const shown = () => page.evaluate(() => [...document.querySelectorAll(".wipe img")].map((image) =>
    [image.src.slice(0, 23), image.naturalWidth > 0, image.src.length]));
  const first = await shown();
  assert.ok(first.every(([start, isLoaded]) => start === "data:image/jpeg;base64," && isLoaded), `${first}`);
  await page.locator(".choices button").last().click();
  await page.waitForFunction(() => [...document.querySelectorAll(".wipe img")].every((i) => i.complete));
  assert.notDeepEqual(await shown(), first);
  await page.locator(".wipe input").fill("50");

  // Warnings and values are text of the page, whatever they hold.
  const text = await page.locator("body").innerText();
  for (const wanted of ["frames have no orientation", "ZPR_GetDefaultParam(&param);", "</script><b>odd</b>",
                        "<!-- <script> ]]> &amp; \u2029", "<img src=x onerror=alert(2)>",
                        "steady<svg onload=alert(4)>.mp4", "<!--<script>alert(1)&lt;\u2028\ufffd.gcsv",
                        "translation, px RMS", "of the shake is left", "Would help most", "Readout time"]) {
    assert.ok(text.includes(wanted), `the page does not say: ${wanted}`);
  }
  await page.screenshot({ path: screenshot, fullPage: true });

  // Dark colours, and the width of a phone.
  await page.emulateMedia({ colorScheme: "dark" });
  await page.setViewportSize({ width: 390, height: 800 });
  await eventually(async () => {
    const overhang = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    assert.ok(overhang <= 0, `wider than a phone by ${overhang} px`);
    checkPlots(await readPlots(), 8);
  });
  await page.screenshot({ path: screenshot.replace(".png", "_dark.png"), fullPage: true });

  assert.deepEqual(complaints, []);
  assert.deepEqual(requests, []);
  console.log("console: nothing; network: nothing");
} finally {
  await browser.close();
}
