// Drives an MCP server through the official MCP TypeScript SDK (its Client and
// StdioClientTransport), the way AI assistant hosts do, and prints what the SDK saw as one JSON
// line. The C++ tests assert on it.
//
//   node sdk-client.cjs SCENARIO COMMAND [ARGUMENTS...]
//
// SCENARIO "basic" connects, lists, pings and closes; "catalogue" also calls the test server's
// tools and reads its resources.
"use strict";

const { Client } = require("@modelcontextprotocol/sdk/client/index.js");
const { StdioClientTransport } = require("@modelcontextprotocol/sdk/client/stdio.js");

async function failure(promise) {
  try {
    await promise;
    return null;
  } catch (error) {
    return { code: error.code, message: error.message };
  }
}

async function main() {
  const [scenario, command, ...args] = process.argv.slice(2);
  const transport = new StdioClientTransport({ command, args, stderr: "pipe" });
  let stderr = "";
  transport.stderr.on("data", (chunk) => {
    stderr += chunk;
  });
  const client = new Client({ name: "brimble-tests", version: "1.0.0" });
  const transportErrors = [];
  client.onerror = (error) => transportErrors.push(String(error));

  const seen = {};
  await client.connect(transport);
  seen.serverVersion = client.getServerVersion();
  seen.serverCapabilities = client.getServerCapabilities();
  seen.tools = await client.listTools();
  seen.resources = await client.listResources();
  if (scenario === "catalogue") {
    seen.add = await client.callTool({ name: "add", arguments: { a: 2, b: 40 } });
    seen.addWrong = await client.callTool({ name: "add", arguments: { a: "two" } });
    seen.unknownTool = await failure(client.callTool({ name: "missing", arguments: {} }));
    seen.readme = await client.readResource({ uri: "test://notes/readme" });
    seen.file = await client.readResource({ uri: "test://reports/q3.json" });
    seen.unknownResource = await failure(client.readResource({ uri: "elsewhere://notes" }));
    seen.brokenResource = await failure(client.readResource({ uri: "test://broken" }));
  }
  seen.ping = await client.ping();

  const child = transport._process;
  const started = Date.now();
  await client.close();
  seen.closeMilliseconds = Date.now() - started;
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
