// The HTML view of kovtool in a real browser: Debian's chromium, headless, driven through
// puppeteer-core. Run by ctest as
//   node view_test.cjs KOVTOOL SAMPLE_DIR OUT_DIR DEPS_DIR...
// It loads the view of the sample radio, checks the tree, clicks a field in the tree and a byte
// in the hex panel and checks what each highlights and the detail text, checks that bytes shared
// by fields show each field's bits in its colour and that a click on a field's bits selects it,
// searches, and takes a
// screenshot (OUT_DIR/view.png; also to $KOV_VIEW_SCREENSHOT when set). Then it opens the view of
// an image of 1 MiB and checks that only the rows in sight are in the document.
// Exit 0 passed, 1 failed, 77 skipped (no chromium, node packages missing), with the reason.
"use strict";
const fs = require("fs");
const path = require("path");
const {execFileSync, spawnSync} = require("child_process");

const [kovtool, sampleDir, outDir, ...depsDirs] = process.argv.slice(2);
const chromium = process.env.KOV_CHROMIUM || "/usr/bin/chromium";

function skip(why) {
  console.log(`SKIP: ${why}`);
  process.exit(77);
}
if (!fs.existsSync(chromium)) skip(`no browser at ${chromium} (scripts/install-deps --browser)`);
const deps = depsDirs.find(d => fs.existsSync(path.join(d, "node_modules", "puppeteer-core")));
if (!deps) {
  skip(`puppeteer-core is not installed in ${depsDirs.join(" or ")} ` +
       "(scripts/install-deps --browser)");
}
const puppeteer = require(path.resolve(deps, "node_modules", "puppeteer-core"));

let failures = 0;
function check(ok, what, got) {
  if (ok) return;
  failures++;
  console.log(`FAIL: ${what}` + (got === undefined ? "" : `\n  got: ${JSON.stringify(got)}`));
}
function eq(got, want, what) { check(JSON.stringify(got) === JSON.stringify(want), `${what}: want ${JSON.stringify(want)}`, got); }

function kov(...args) {
  return execFileSync(kovtool, args, {encoding: "utf8", stdio: ["ignore", "pipe", "pipe"]});
}

// A values file of the sample's layout that packs to about 1 MiB: full channel banks.
function largeValues(dir) {
  const layout = JSON.parse(fs.readFileSync(path.join(sampleDir, "layout.json"), "utf8"));
  layout.maxImageSize = 2 * 1024 * 1024;
  const layoutFile = path.join(dir, "large-layout.json");
  fs.writeFileSync(layoutFile, JSON.stringify(layout));
  const values = JSON.parse(fs.readFileSync(path.join(sampleDir, "values.json"), "utf8"));
  values["Channel bank"] = [];
  for (let b = 0; b < 4600; b++) {
    const channels = [];
    for (let c = 0; c < 16; c++) {
      channels.push(c % 2
          ? {Kind: "Digital", "Channel name": `D${b}-${c}`.slice(0, 8),
             Mode: {Digital: {"Color code": c % 16, "Time slot": 1, Talkgroup: b * 16 + c}}}
          : {Kind: "Analog", "Channel name": `A${b}-${c}`.slice(0, 8),
             Mode: {Analog: {"Rx frequency": "145.500", Power: "High", Wide: 1}}});
    }
    values["Channel bank"].push({Channels: channels});
  }
  const valuesFile = path.join(dir, "large-values.json");
  fs.writeFileSync(valuesFile, JSON.stringify(values));
  return [layoutFile, valuesFile];
}

async function main() {
  fs.mkdirSync(outDir, {recursive: true});
  const layout = path.join(sampleDir, "layout.json");
  const image = path.join(outDir, "radio.kov"), html = path.join(outDir, "radio.html");
  kov("pack", layout, path.join(sampleDir, "values.json"), "-o", image);
  kov("view", layout, image, "-o", html);

  const browser = await puppeteer.launch({
    executablePath: chromium,
    headless: true,
    args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"],
  });
  try {
    const page = await browser.newPage();
    await page.setViewport({width: 1280, height: 760});
    const requests = [];
    page.on("request", r => { if (!r.url().startsWith("file:")) requests.push(r.url()); });
    const errors = [];
    page.on("pageerror", e => errors.push(String(e)));
    await page.goto("file://" + html);
    await page.waitForSelector("body[data-ready]");
    eq(requests, [], "requests to anything but the file");

    // The tree: blocks in layout order, with instances, lists and values under them.
    const rows = await page.$$eval("#tree .t", els => els.map(e => e.textContent));
    eq(rows.slice(0, 8), ["▾Device info 1 instance", "▾Device info instance 1",
                          "Model = \"HT-2\"", "Serial = \"40117203\"", "Hardware revision = 3",
                          "Band = 'U'", "▾General 1 instance", "▾General instance 1"],
       "the first rows of the tree");
    const blocks = await page.$$eval("#tree .t[data-block] b", els => els.map(e => e.textContent));
    eq(blocks, ["Device info", "General", "Channel bank"], "block rows in sight");

    // A field clicked in the tree: its bytes in the hex panel, its detail.
    // Scrolls the tree so that the first row of that name is in sight (rows are made as the
    // tree scrolls), then clicks it.
    const clickRow = async name => {
      await page.evaluate(n => {
        const row = [...document.querySelectorAll("#tree .t .name")].find(e => e.textContent === n);
        document.getElementById("tree").scrollTop =
            Math.max(0, parseInt(row.parentElement.style.top) - 100);
      }, name);
      await page.evaluate(() => new Promise(r => requestAnimationFrame(() => requestAnimationFrame(r))));
      const handle = await page.evaluateHandle(n => [...document.querySelectorAll("#tree .t .name")]
          .find(e => e.textContent === n), name);
      await handle.asElement().click();
      await page.waitForFunction(() => document.querySelector("#hex .b.sel"));
    };
    await clickRow("Radio alias");
    const sel = await page.$$eval("#hex .b.sel", els => els.map(e => +e.dataset.i));
    eq(sel, [32, 33, 34, 35, 36, 37, 38, 39, 40, 41], "bytes of General.Radio alias");
    let detail = await page.$eval("#detail", e => e.textContent);
    eq(detail.split("\n").slice(0, 8), [
      "General.Radio alias", "", "kind      value", "block     General",
      "offset    0x000020 (byte 32), MSB 7, bit 256", "width     80 bits",
      "raw       0x42617365203100000000", "value     \"Base 1\""], "detail of General.Radio alias");

    // Bytes shared by fields, split by bits (from the dump: General.Volume at 0x1E MSB 7 and
    // Squelch at MSB 3, 4 bits each; Backlight 3 bits from 0x1F MSB 7, Beep MSB 4, Key lock
    // MSB 2): each run of bits where it lies, in the colour of its field's swatch in the tree,
    // the bits no field claims shaded.
    await page.mouse.move(5, 5);
    const segments = byte => page.evaluate(b => {
      const cell = document.querySelector(`#hex .b[data-i="${b}"]`).getBoundingClientRect();
      const swatch = name => {
        const row = [...document.querySelectorAll("#tree .t")]
            .find(r => r.querySelector(".name")?.textContent === name);
        return row ? getComputedStyle(row.querySelector(".sw")).backgroundColor : "";
      };
      return [...document.querySelectorAll(`#hex .b[data-i="${b}"] .s`)].map(e => {
        const r = e.getBoundingClientRect(), n = e.dataset.n;
        const name = n === undefined ? "free" : document.querySelector(`#tree .t[data-node="${n}"] .name`)?.textContent;
        return {bits: [Math.round((r.left - cell.left) / cell.width * 8),
                       Math.round((r.right - cell.left) / cell.width * 8)],
                name, colourOfItsField: n === undefined ? e.classList.contains("free") :
                    getComputedStyle(e).backgroundColor === swatch(name)};
      });
    }, byte);
    eq(await segments(30), [{bits: [0, 4], name: "Volume", colourOfItsField: true},
                            {bits: [4, 8], name: "Squelch", colourOfItsField: true}],
       "the bits of byte 0x1E");
    eq(await segments(31), [{bits: [0, 3], name: "Backlight", colourOfItsField: true},
                            {bits: [3, 4], name: "Beep", colourOfItsField: true},
                            {bits: [4, 5], name: "free", colourOfItsField: true},
                            {bits: [5, 6], name: "Key lock", colourOfItsField: true},
                            {bits: [6, 8], name: "free", colourOfItsField: true}],
       "the bits of byte 0x1F");
    const volume = await page.evaluate(() => getComputedStyle(document.querySelector('#hex .b[data-i="30"] .s')).backgroundColor);
    const squelch = await page.evaluate(() => getComputedStyle(document.querySelectorAll('#hex .b[data-i="30"] .s')[1]).backgroundColor);
    check(volume !== squelch, "two fields of one byte in two colours", [volume, squelch]);
    // A click on the second field's bits selects that field, not the byte's first.
    const clickBits = async (byte, k) => {
      const at = await page.evaluate((b, k) => {
        const r = document.querySelectorAll(`#hex .b[data-i="${b}"] .s`)[k].getBoundingClientRect();
        return [r.left + r.width / 2, r.top + r.height / 2];
      }, byte, k);
      await page.mouse.click(at[0], at[1]);
      await page.mouse.move(5, 5);
    };
    await clickBits(30, 1);
    await page.waitForFunction(() => document.querySelector("#tree .t.sel .name")?.textContent === "Squelch");
    detail = await page.$eval("#detail", e => e.textContent);
    eq(detail.split("\n").slice(0, 1).concat(detail.split("\n").slice(4, 6)), [
      "General.Squelch", "offset    0x00001E (byte 30), MSB 3, bit 244", "width     4 bits"],
       "detail of General.Squelch, clicked on its bits");
    eq(await page.$$eval('#hex .b[data-i="30"] .s.sel', els => els.map(e => +e.dataset.f)), [4],
       "the selected field's bits marked");

    // A byte clicked in the hex panel: the field that claims it, in the tree and the detail.
    await clickBits(31, 0);
    await page.waitForFunction(() => document.querySelector("#tree .t.sel .name")?.textContent === "Backlight");
    detail = await page.$eval("#detail", e => e.textContent);
    eq(detail.split("\n").slice(4, 8), [
      "offset    0x00001F (byte 31), MSB 7, bit 248", "width     3 bits", "raw       0x5  (101)",
      "value     5"], "detail of General.Backlight, clicked at byte 0x1F");

    // Hovering a checksum shows it.
    await page.hover('#hex .b[data-i="22"]');
    await page.waitForFunction(() => document.querySelector("#detail").textContent.startsWith("Device info"));
    detail = await page.$eval("#detail", e => e.textContent);
    check(detail.includes("checksum  0xE3F5 at 0x000016: good"), "checksum on hover", detail);

    // Search by value.
    await page.mouse.move(5, 5);
    await page.type("#search", "Marine");
    await page.keyboard.press("Enter");
    await page.waitForFunction(() => document.querySelector("#detail").textContent.startsWith("Channel bank[2]"));
    detail = await page.$eval("#detail", e => e.textContent);
    eq(detail.split("\n")[0], "Channel bank[2].Channels[1].Channel name", "search for Marine");

    // A scaled value: the raw bits beside the exact decimal (156.800 / 0.005 = 31360). The
    // first row of that name in sight is Channel bank[2]'s, where the search scrolled to.
    await clickRow("Rx frequency");
    await page.mouse.move(5, 5);
    detail = await page.$eval("#detail", e => e.textContent);
    eq(detail.split("\n").slice(0, 1).concat(detail.split("\n").slice(6, 8)), [
      "Channel bank[2].Channels[1].Mode.Analog.Rx frequency",
      "raw       0x7A80  (0111101010000000)", "value     156.800"], "detail of Rx frequency");
    await page.screenshot({path: path.join(outDir, "view.png")});
    if (process.env.KOV_VIEW_SCREENSHOT) {
      fs.copyFileSync(path.join(outDir, "view.png"), process.env.KOV_VIEW_SCREENSHOT);
    }

    // A damaged image: a bit of Channel bank[1]'s data (header at 0x32) flipped. Its checksum
    // is red, its data marked as not read, the faults listed; kovtool exits 1.
    const damaged = path.join(outDir, "damaged.kov"), damagedHtml = path.join(outDir, "damaged.html");
    const b = fs.readFileSync(image);
    b[0x40] ^= 1;
    fs.writeFileSync(damaged, b);
    const run = spawnSync(kovtool, ["view", layout, damaged, "-o", damagedHtml], {encoding: "utf8"});
    eq(run.status, 1, "exit status of view for a damaged image");
    await page.goto("file://" + damagedHtml);
    await page.waitForSelector("body[data-ready]");
    eq(await page.$$eval("#hex .b.crcbad", els => els.map(e => +e.dataset.i)), [0x63, 0x64],
       "the bad checksum's bytes");
    eq(await page.$eval('#hex .b[data-i="64"]', e => e.classList.contains("lost")), true,
       "data of the instance not read");
    detail = await page.$eval("#detail", e => e.textContent);
    check(detail.includes("0x000032  bad checksum: Channel bank[1]: checksum 0x535F, but the data gives 0x346A"),
          "the faults in the detail", detail);

    // An image of 1 MiB: only the rows in sight are made, at the top and at the end.
    const [largeLayout, largeValuesFile] = largeValues(outDir);
    const large = path.join(outDir, "large.kov"), largeHtml = path.join(outDir, "large.html");
    kov("pack", largeLayout, largeValuesFile, "-o", large);
    const size = fs.statSync(large).size;
    check(size >= 1024 * 1024, "the large image is 1 MiB at least", size);
    kov("view", largeLayout, large, "-o", largeHtml);
    await page.goto("file://" + largeHtml);
    await page.waitForSelector("body[data-ready]");
    const counts = await page.evaluate(() => [document.querySelectorAll("#hex .row").length,
                                              document.querySelectorAll("#tree .row").length]);
    check(counts[0] < 100 && counts[1] < 100, "rows in the document of the large view", counts);
    await page.$eval("#hex", e => { e.scrollTop = e.scrollHeight; });
    await page.waitForFunction(n => [...document.querySelectorAll("#hex .off")]
        .some(o => parseInt(o.textContent, 16) === Math.floor((n - 1) / 16) * 16), {}, size);
    eq(errors, [], "errors on the page");
  } finally {
    await browser.close();
  }
  console.log(failures ? `${failures} check(s) failed` : "view: all checks passed");
  process.exit(failures ? 1 : 0);
}

main().catch(e => {
  console.log(`FAIL: ${e.stack || e}`);
  process.exit(1);
});
