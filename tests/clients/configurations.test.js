// The configurations in examples/clients: each is taken apart as its client does it, and what it says
// is started. Client programs that run here read the files themselves.
import assert from "node:assert/strict";
import { mkdirSync, readFileSync, readdirSync, statSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { basename, dirname, extname, join } from "node:path";
import { afterEach, beforeEach, describe, test } from "node:test";

import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { parse as parseTOML } from "smol-toml";

import { SampleHome, kDefaultHome, repository, run, shellWords, textOf, withPathsOf } from "./support.js";

const kFolder = "examples/clients";
const kTools = ["list_meetings", "get_meeting", "search_transcripts", "get_person"];
const kMeetings = 12; // thirteen samples, one of them tagged private

// "claude mcp add" and "codex mcp add": options, the name, "--", the command.
function serverOfAdd(words) {
  const [, mcp, add, ...rest] = words;
  assert.deepEqual([mcp, add], ["mcp", "add"]);
  const separator = rest.indexOf("--");
  assert.ok(separator > 0, "the command stands after --");
  const env = {};
  const names = [];
  for (let i = 0; i < separator; ++i) {
    if (["-e", "--env"].includes(rest[i])) {
      const [, key, value] = rest[++i].match(/^(\w+)=(.*)$/);
      env[key] = value;
    } else if (rest[i] === "-s") {
      assert.equal(rest[++i], "user");
    } else {
      names.push(rest[i]);
    }
  }
  assert.deepEqual(names, ["velta"]);
  return { command: rest[separator + 1], args: rest.slice(separator + 2), env };
}

const mcpServers = (text) => JSON.parse(text).mcpServers.velta;

// How each client reads its file. Without a reader the file is the command line of a program that
// runs here, below.
const readers = {
  "claude-code.sh": async (text) => serverOfAdd(await shellWords(text)),
  "claude-desktop.json": mcpServers,
  "codex.sh": async (text) => serverOfAdd(await shellWords(text)),
  "codex.toml": (text) => parseTOML(text).mcp_servers.velta,
  "cursor.json": mcpServers,
  "inspector.sh": undefined,
  "mcporter.sh": undefined,
  "vscode.json": (text) => JSON.parse(text).servers.velta,
  "zed.json": (text) => JSON.parse(text).context_servers.velta,
};

const files = readdirSync(join(repository, kFolder), { recursive: true })
  .filter((name) => statSync(join(repository, kFolder, name)).isFile()).sort();
const kMembers = ["type", "command", "args", "env"];

describe("configurations of clients", () => {
  let home;
  let client;

  afterEach(async () => {
    await client?.close();
    client = undefined;
    home?.remove();
    home = undefined;
  });

  test("every file has its reader", () => {
    assert.deepEqual([...new Set(files.map((name) => basename(name)))].sort(), Object.keys(readers).sort());
  });

  for (const name of files) {
    const text = textOf(kFolder, name);
    const agent = basename(name, extname(name));

    test(`docs/clients.md shows ${name} as it is`, () => {
      const block = `\n\`\`\`${extname(name).slice(1)}\n${text}\`\`\`\n`;
      assert.ok(textOf("docs/clients.md").includes(block), `no block that is ${name}`);
    });

    if (readers[basename(name)] === undefined) continue;
    test(`${name} starts the server, which answers`, async () => {
      const isNamed = dirname(name) === "home"; // the data home is named, so it may lie anywhere
      home = new SampleHome(isNamed ? "" : kDefaultHome);
      const server = await readers[basename(name)](withPathsOf(home, text));
      assert.deepEqual(Object.keys(server).filter((member) => !kMembers.includes(member)), []);
      assert.ok([undefined, "stdio"].includes(server.type));
      assert.deepEqual(server.args, ["--client", agent]);
      assert.equal("MEETING_NOTES_HOME" in (server.env ?? {}), isNamed);

      client = new Client({ name: agent, version: "1.0.0" });
      const env = { PATH: process.env.PATH ?? "", HOME: isNamed ? "/nonexistent" : home.root, ...server.env };
      await client.connect(new StdioClientTransport({ ...server, env, stderr: "ignore" }));
      assert.equal(client.getServerVersion().name, "velta");
      assert.deepEqual((await client.listTools()).tools.map((tool) => tool.name), kTools);
      const answer = await client.callTool({ name: "list_meetings", arguments: { limit: 50 } });
      assert.equal(answer.structuredContent.count, kMeetings);
      assert.match(readFileSync(join(home.path, "activity.jsonl"), "utf8"), new RegExp(`"agent":"${agent}"`));
    });
  }
});

const { resolve } = createRequire(import.meta.url);

// What `program` prints as JSON; some print a notice before it.
async function answerOf(program, args, options) {
  const { status, stdout, stderr } = await run(process.execPath, [program, ...args], options);
  assert.equal(status, 0, stderr + stdout);
  return JSON.parse(stdout.slice(stdout.search(/^\{/m)));
}

const numbers = (version) => version.match(/\d+(\.\d+)*/)[0].split(".").map(Number);

// Why the package cannot run here; false when it can.
function cannotRun(packageFile) {
  const wanted = JSON.parse(readFileSync(packageFile, "utf8")).engines?.node;
  if (!wanted) return false;
  const [major, minor = 0] = numbers(wanted);
  const [hasMajor, hasMinor] = numbers(process.version);
  const isEnough = hasMajor > major || (hasMajor === major && hasMinor >= minor);
  return isEnough ? false : `needs node ${wanted}, this is ${process.version}`;
}

// The command-line mode of the MCP inspector.
const inspector = resolve("@modelcontextprotocol/inspector-cli");
// It looks for its package.json from the folder that it is started in.
const inspectorFolder = dirname(inspector);
const mcporterFolder = join(dirname(inspector), "../../../mcporter");
const mcporter = join(mcporterFolder, "dist/cli.js");

describe("MCP inspector", { skip: cannotRun(join(inspectorFolder, "../package.json")) }, () => {
  let home;
  let options;

  const prepare = (folder) => {
    home = new SampleHome(folder);
    options = { env: { HOME: home.root }, cwd: inspectorFolder };
  };
  const commandOf = async (name) => {
    const [npx, packageName, ...args] = await shellWords(withPathsOf(home, textOf(kFolder, name)));
    assert.deepEqual([npx, packageName], ["npx", "@modelcontextprotocol/inspector"]);
    return args;
  };
  afterEach(() => home.remove());

  test("inspector.sh lists the tools", async () => {
    prepare(kDefaultHome);
    const { tools } = await answerOf(inspector, await commandOf("inspector.sh"), options);
    assert.deepEqual(tools.map((tool) => tool.name), kTools);
  });

  test("home/inspector.sh calls a tool over another data home", async () => {
    prepare("");
    const { structuredContent } = await answerOf(inspector, await commandOf("home/inspector.sh"), options);
    assert.equal(structuredContent.count, 5);
  });

  for (const name of ["claude-desktop.json", "cursor.json"]) {
    test(`reads ${name} and calls a tool`, async () => {
      prepare(kDefaultHome);
      const file = join(home.root, name);
      writeFileSync(file, withPathsOf(home, textOf(kFolder, name)));
      const args = ["--cli", "--config", file, "--server", "velta", "--method", "tools/call",
        "--tool-name", "search_transcripts", "--tool-arg", "query=押金"];
      const { structuredContent } = await answerOf(inspector, args, options);
      assert.ok(structuredContent.count > 0);
      assert.ok(structuredContent.hits.every((hit) => hit.text.includes("押金")));
    });
  }
});

describe("mcporter", { skip: cannotRun(join(mcporterFolder, "package.json")) }, () => {
  let home;
  let options;

  beforeEach(() => {
    home = new SampleHome(kDefaultHome);
    options = { env: { HOME: home.root }, cwd: home.root };
  });
  afterEach(() => home.remove());

  test("mcporter.sh calls a tool", async () => {
    const [npx, name, ...args] = await shellWords(withPathsOf(home, textOf(kFolder, "mcporter.sh")));
    assert.deepEqual([npx, name], ["npx", "mcporter"]);
    const { structuredContent, ...rest } = await answerOf(mcporter, [...args, "--output", "json"], options);
    assert.equal((structuredContent ?? rest).count, 5);
  });

  // Where the clients keep their configuration in a project; mcporter looks there as they do.
  const places = { "cursor.json": ".cursor/mcp.json", "vscode.json": ".vscode/mcp.json", "codex.toml": ".codex/config.toml" };
  for (const [name, place] of Object.entries(places)) {
    test(`finds ${name} as ${place}, lists the tools and calls one`, async () => {
      const file = join(home.root, place);
      mkdirSync(dirname(file), { recursive: true });
      writeFileSync(file, withPathsOf(home, textOf(kFolder, name)));
      const listing = await answerOf(mcporter, ["list", "velta", "--json"], options);
      assert.equal(listing.status, "ok");
      assert.equal(listing.source.importKind, basename(name, extname(name)));
      assert.deepEqual(listing.tools.map((tool) => tool.name), kTools);
      const args = ["call", "velta.list_meetings", "limit=50", "--output", "json"];
      assert.equal((await answerOf(mcporter, args, options)).count, kMeetings);
    });
  }
});
