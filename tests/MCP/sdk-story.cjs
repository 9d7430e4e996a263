// Drives `brimble mcp-server` through the official MCP TypeScript SDK the way an assistant would
// tell a story: list windows, open a terminal, record it while typing, stop, render in several
// formats, look at a still, run and check scripts, inspect a page, read every resource, and
// probe the edge cases. Prints what the SDK saw as one JSON line; the C++ test
// (MCPSDKClientTest.cpp) asserts on it and checks the files with independent decoders.
//
//   node sdk-story.cjs WORKDIR PAGE_URL COMMAND [ARGUMENTS...]
//
// The server runs with WORKDIR as its working directory and the SDK's default (bare)
// environment plus BRIMBLE_SCRIPT_DIR, BRIMBLE_HISTORY_FILE and TMPDIR pointing into WORKDIR.
"use strict";

const path = require("path");
const Ajv = require("ajv");
const { Client } = require("@modelcontextprotocol/sdk/client/index.js");
const {
  StdioClientTransport,
  getDefaultEnvironment,
} = require("@modelcontextprotocol/sdk/client/stdio.js");

async function main() {
  const [workdir, pageURL, command, ...args] = process.argv.slice(2);
  const env = {
    ...getDefaultEnvironment(),
    BRIMBLE_SCRIPT_DIR: path.join(workdir, "scripts"),
    BRIMBLE_HISTORY_FILE: path.join(workdir, "history.json"),
    TMPDIR: path.join(workdir, "tmp"),
  };
  // Hosts start servers with a bare environment; the sanitizers' settings (suppressions of
  // libraries' process-long caches) still reach the server under `make sanitize`.
  for (const name of ["ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"]) {
    if (process.env[name]) {
      env[name] = process.env[name];
    }
  }
  const transport = new StdioClientTransport({ command, args, env, cwd: workdir, stderr: "pipe" });
  let stderr = "";
  transport.stderr.on("data", (chunk) => {
    stderr += chunk;
  });
  const client = new Client({ name: "brimble-story", version: "1.0.0" });
  const transportErrors = [];
  client.onerror = (error) => transportErrors.push(String(error));
  await client.connect(transport);

  const seen = { calls: {} };
  // The text of the first content item, parsed when it is JSON; with isError and extra items.
  const call = async (name, args) => {
    const result = await client.callTool({ name, arguments: args });
    const text = result.content[0].text;
    let value = text;
    try {
      value = JSON.parse(text);
    } catch (error) {
      // Error texts are plain.
    }
    return {
      isError: result.isError === true,
      value,
      extra: result.content.slice(1).map((item) => ({
        type: item.type,
        mimeType: item.mimeType,
        bytes: item.data ? Buffer.from(item.data, "base64").length : 0,
        data: item.data,
      })),
    };
  };
  const record = async (key, name, args) => {
    seen.calls[key] = await call(name, args);
    return seen.calls[key];
  };

  // Schema hygiene: every input schema compiles under a JSON Schema validator.
  const tools = (await client.listTools()).tools;
  seen.toolNames = tools.map((tool) => tool.name);
  const ajv = new Ajv({ strict: false });
  seen.schemaErrors = [];
  for (const tool of tools) {
    try {
      ajv.compile(tool.inputSchema);
    } catch (error) {
      seen.schemaErrors.push(`${tool.name}: ${error.message}`);
    }
  }
  seen.requiredTexts = {};
  for (const tool of tools) {
    const result = await call(tool.name, {});
    if (result.isError && !["list_windows", "check_permissions"].includes(tool.name)) {
      seen.requiredTexts[tool.name] = result.value;
    }
  }

  // The story.
  await record("listWindows", "list_windows", {});
  await record("openTerminal", "open_app", { app: "Terminal" });
  await record("listTerminals", "list_windows", { app: "term" });
  const started = await record("start", "start_recording", { app: "Terminal", fps: 24 });
  const id = started.value.session_id;
  await record("renderWhileRecording", "render_gif", { session_id: id });
  await record("discardWhileRecording", "discard_recording", { session_id: id });
  await record("typeText", "type_text", { text: "echo brimble story", enter: true, delay: 0.02 });
  // A pause between two changes, for the idle handling of process_gif.
  await new Promise((resolve) => setTimeout(resolve, 600));
  await record("keyPress", "key_press", { key: "enter" });
  await new Promise((resolve) => setTimeout(resolve, 400));
  await record("stop", "stop_recording", { session_id: id });
  await record("stopAgain", "stop_recording", { session_id: id });
  await record("renderGIF", "render_gif", { session_id: id });
  await record("renderWebP", "render_gif", {
    session_id: id,
    format: "webp",
    output: path.join(workdir, "story.webp"),
    max_width: 400,
    transforms: { cursor_smoothing: true, faux_title_bar: true, deduplicate_frames: true },
  });
  await record("renderDiffed", "render_gif", {
    session_id: id,
    output: path.join(workdir, "diffed.gif"),
    frame_diffing: true,
  });
  await record("renderAPNG", "render_gif", {
    session_id: id,
    format: "apng",
    output: path.join(workdir, "story.png"),
    max_width: 320,
  });
  await record("renderMP4", "render_gif", {
    session_id: id,
    format: "mp4",
    output: path.join(workdir, "story.mp4"),
  });
  await record("renderBadWidth", "render_gif", { session_id: id, max_width: 0 });
  await record("renderBadLoop", "render_gif", { session_id: id, loop_count: -1 });
  await record("process", "process_gif", {
    input: path.join(workdir, `recording-${id}.gif`),
    output: path.join(workdir, "processed.gif"),
    max_width: 200,
    speed: 2,
  });
  for (const strategy of ["cut", "fade"]) {
    await record(`process-${strategy}`, "process_gif", {
      input: path.join(workdir, `recording-${id}.gif`),
      output: path.join(workdir, `idle-${strategy}.gif`),
      idle_strategy: strategy,
      idle_threshold: 0.3,
    });
  }
  await record("processMissing", "process_gif", { input: path.join(workdir, "nope.gif") });
  await record("discard", "discard_recording", { session_id: id });
  await record("discardAgain", "discard_recording", { session_id: id });
  await record("renderDiscarded", "render_gif", { session_id: id });
  await record("discardUnknown", "discard_recording", { session_id: "rec-00000000" });
  await record("renderUnknown", "render_gif", { session_id: "rec-00000000" });

  // Retention: the fourth completed recording releases the first.
  const regions = [];
  for (let i = 0; i < 4; i += 1) {
    const region = await call("record_region", { x: 0, y: 0, width: 320, height: 200, fps: 10 });
    regions.push(region.value.session_id);
    await new Promise((resolve) => setTimeout(resolve, 250));
    await call("stop_recording", { session_id: region.value.session_id });
  }
  seen.regionIDs = regions;
  await record("renderEvicted", "render_gif", { session_id: regions[0] });
  await record("renderKept", "render_gif", {
    session_id: regions[1],
    output: path.join(workdir, "kept.gif"),
    release: true,
  });
  await record("renderReleased", "render_gif", { session_id: regions[1] });

  // Pausing, cropping, the pointer and the wheel.
  const paused = await call("record_region", { x: 0, y: 0, width: 100, height: 100, fps: 10 });
  await record("pause", "pause_recording", { session_id: paused.value.session_id });
  await record("resume", "resume_recording", { session_id: paused.value.session_id });
  await call("stop_recording", { session_id: paused.value.session_id });
  await record("pauseUnknown", "pause_recording", { session_id: "rec-00000000" });
  const cropped = await record("cropStart", "start_recording", {
    app: "Terminal",
    crop: { x: 10, y: 10, w: 200, h: 100 },
    fps: 10,
  });
  await new Promise((resolve) => setTimeout(resolve, 300));
  await call("stop_recording", { session_id: cropped.value.session_id });
  await record("cropRender", "render_gif", {
    session_id: cropped.value.session_id,
    output: path.join(workdir, "crop.gif"),
  });
  await record("focus", "focus_app", { app: "Terminal" });
  await record("focusMissing", "focus_app", { app: "no-such-app-anywhere" });
  await record("move", "move_cursor", { x: 120, y: 80, duration: 0.2 });
  await record("click", "click", { x: 121, y: 81, right: true });
  await record("clickHere", "click", {});
  await record("scroll", "scroll", { direction: "down", ticks: 2 });
  await record("settings", "list_settings", {});
  await record("commands", "list_commands", {});

  // Limits.
  for (const [key, fps] of [["fps0", 0], ["fps121", 121], ["fps1", 1], ["fps120", 120]]) {
    const result = await record(key, "record_region", { x: 0, y: 0, width: 64, height: 64, fps });
    if (!result.isError) {
      await call("stop_recording", { session_id: result.value.session_id });
    }
  }
  for (const [key, width] of [["region7681", 7681], ["region7680", 7680]]) {
    const result = await record(key, "record_region", { x: 0, y: 0, width, height: 100 });
    if (!result.isError) {
      await call("stop_recording", { session_id: result.value.session_id });
    }
  }
  await record("badWindow", "start_recording", { window_id: 12345 });
  await record("noApp", "start_recording", { app: "no-such-app-anywhere" });
  await record("badCrop", "start_recording", { app: "Terminal", crop: { x: 0, y: 0, w: -5, h: 5 } });
  await record("simulator", "record_simulator", {});
  await record("badDirection", "scroll", { direction: "sideways" });
  await record("badKey", "key_press", { key: "hyper+q" });

  // Auto-stop: a recording with a duration becomes completed on its own.
  const timed = await record("timed", "record_region", {
    x: 0, y: 0, width: 200, height: 100, fps: 10, duration: 0.5,
  });
  await new Promise((resolve) => setTimeout(resolve, 1500));
  await record("timedStop", "stop_recording", { session_id: timed.value.session_id });
  await record("timedRender", "render_gif", {
    session_id: timed.value.session_id,
    output: path.join(workdir, "timed.gif"),
  });

  // A still the assistant can see.
  const still = await record("still", "capture_still", {
    app: "Terminal",
    output: path.join(workdir, "still.png"),
  });
  for (const item of still.extra) {
    delete item.data;
  }
  // The pictures of renders, for the test to measure.
  for (const key of ["renderGIF", "renderWebP"]) {
    for (const item of seen.calls[key].extra) {
      require("fs").writeFileSync(path.join(workdir, `${key}-image.png`), item.data, "base64");
      delete item.data;
    }
  }
  await record("stillJPEG", "capture_still", {
    region: { x: 0, y: 0, w: 300, h: 200 },
    size: "150x150",
    format: "jpeg",
    output: path.join(workdir, "still.jpg"),
  });

  // Scripts.
  await record("execute", "execute_script", {
    script: `set output "${path.join(workdir, "script.gif")}"\nset fps 12\nrecord region 0 0 240 160 duration 0.6\n`,
  });
  await record("validateGood", "validate_script", { script: "set fps 30\nwait 1\n" });
  await record("validateBad", "validate_script", { script: "set fps 30\nbogus 1\n" });
  await record("validateMissingFile", "validate_script", { file: path.join(workdir, "none.brim") });

  // Elements of a local page, over CDP.
  await record("listElements", "list_elements", { url: pageURL, limit: 1000 });
  await record("resolveFound", "resolve_target", { url: pageURL, target: "css:#name" });
  await record("resolveMissing", "resolve_target", { url: pageURL, target: "css:#no-such" });
  // Elements of a native application over AT-SPI: a GTK application, and a terminal, which shows
  // none.
  await record("factoryOpened", "open_app", { app: "gtk3-widget-factory" });
  await record("elementsOfApp", "list_elements", { app: "gtk3-widget-factory", limit: 40 });
  await record("elementsOfTerminal", "list_elements", { app: "Terminal" });
  // More elements than the cap: a limit of 1000 is clamped to 500.
  const crowded = path.join(workdir, "crowded.html");
  const buttons = Array.from({ length: 600 }, (_, i) => `<button id="b${i}">B${i}</button>`);
  require("fs").writeFileSync(crowded, `<!doctype html><body>${buttons.join("")}</body>`);
  const many = await call("list_elements", { url: `file://${crowded}`, limit: 1000 });
  seen.calls.crowded = {
    isError: many.isError,
    value: many.isError ? many.value : { count: many.value.count, listed: many.value.elements.length },
    extra: [],
  };

  await record("permissions", "check_permissions", {});
  await record("status", "brimble_status", {});

  // Every resource.
  seen.resources = (await client.listResources()).resources;
  seen.reads = {};
  const read = async (uri) => {
    try {
      const result = await client.readResource({ uri });
      seen.reads[uri] = result.contents[0];
    } catch (error) {
      seen.reads[uri] = { error: error.message };
    }
  };
  for (const uri of [
    "brimble://docs/scripting-reference",
    "brimble://examples/hello",
    "brimble://examples/git-workflow",
    "brimble://examples/multi-window",
    "brimble://examples/spotlight-demo",
    "brimble://examples/polish-demo",
    "brimble://examples/nope",
    "brimble://schema/settings",
    "brimble://status/permissions",
    "brimble://recordings",
    "gif://library",
    `gif://${path.join(workdir, "saved.gif")}`,
    "gif:///nowhere.gif",
    "script://library",
    "script://library/demo",
    "script://library/../x",
    "script://library/missing",
  ]) {
    await read(uri);
  }

  const child = transport._process;
  await client.close();
  seen.close = { exitCode: child.exitCode, signal: child.signalCode };
  await new Promise((resolve) => setImmediate(resolve));
  seen.stderr = stderr;
  seen.transportErrors = transportErrors;
  process.stdout.write(JSON.stringify(seen) + "\n");
}

main().catch((error) => {
  process.stderr.write((error && error.stack) || String(error));
  process.stderr.write("\n");
  process.exit(1);
});
