// What the client tests share: a sample data home of their own, and the built program as a child
// process of a real client library.
import { spawn } from "node:child_process";
import { cpSync, mkdirSync, mkdtempSync, readFileSync, rmSync, symlinkSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

import { Client as Client1 } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport as Transport1 } from "@modelcontextprotocol/sdk/client/stdio.js";
import { ToolListChangedNotificationSchema } from "@modelcontextprotocol/sdk/types.js";
import { Client as Client2 } from "@modelcontextprotocol/client";
import { StdioClientTransport as Transport2 } from "@modelcontextprotocol/client/stdio";
import { Ajv } from "ajv";
import addFormats from "ajv-formats";

export const repository = resolve(dirname(fileURLToPath(import.meta.url)), "../..");
export const binary = resolve(repository, process.env.VELTA_BINARY ?? "build/release/velta-mcp");

const identity = { name: "velta-client-tests", version: "1.0.0" };
const kListChanged = "notifications/tools/list_changed";

// A copy of the sample meetings in a temporary folder, or in `folder` of one: then `root` may be a
// user's home that has the data home where the program looks for it. Call remove() at the end.
export class SampleHome {
  constructor(folder = "") {
    this.root = mkdtempSync(join(tmpdir(), "velta-home-"));
    this.path = join(this.root, folder);
    mkdirSync(this.path, { recursive: true });
    for (const source of ["recordings", "imported", "legacy"]) {
      cpSync(join(repository, "examples", source), join(this.path, source), { recursive: true });
    }
    this.write("mcp-config.json", {
      sources: [
        { type: "recordings", glob: join(this.path, "recordings/*/notes.json"), visibility: "private" },
        { type: "imported", glob: join(this.path, "imported/*/notes.json"), visibility: "work" },
        { type: "legacy", path: join(this.path, "legacy"), visibility: "work" },
      ],
      clients: { "work-agent": ["work", "shared"], nobody: [] },
    });
  }

  write(name, value) {
    writeFileSync(join(this.path, name), JSON.stringify(value, null, 2));
  }

  read(name) {
    return JSON.parse(readFileSync(join(this.path, name), "utf8"));
  }

  // Sets what the agent may do, as the desktop app's settings do.
  grant(agent, entry) {
    this.write("agents.json", { agents: { [agent]: entry } });
  }

  remove() {
    rmSync(this.root, { recursive: true, force: true });
  }
}

export const kDefaultHome = "Library/Application Support/MeetingNotes";

// The text with the paths that stand in for the user's own replaced, as the user does it. The program
// is named by a link in the home, whose path needs no quoting in any format.
export function withPathsOf(home, text) {
  const program = join(home.root, "velta-mcp");
  rmSync(program, { force: true });
  symlinkSync(binary, program);
  return text.replaceAll("/path/to/build/release/velta-mcp", program).replaceAll("/path/to/home", home.path);
}

// The words of a command line as a shell hands them to the command, the command first.
export async function shellWords(line) {
  const [command] = line.trim().split(" ");
  const script = `${command}() { printf '%s\\0' ${command} "$@"; }\n${line}`;
  const { stdout } = await run("/bin/sh", ["-c", script]);
  return stdout.split("\0").slice(0, -1);
}

// Runs a program to its end, with `input` as its standard input.
export function run(command, args, { env = {}, input = "", cwd } = {}) {
  return new Promise((done, failed) => {
    const child = spawn(command, args, { env: { PATH: process.env.PATH ?? "", ...env }, cwd, timeout: 60000 });
    const said = { stdout: [], stderr: [] };
    for (const stream of ["stdout", "stderr"]) child[stream].on("data", (bytes) => said[stream].push(bytes));
    child.on("error", failed);
    child.on("close", (status) => done({
      status, stdout: Buffer.concat(said.stdout).toString(), stderr: Buffer.concat(said.stderr).toString(),
    }));
    child.stdin.on("error", () => {});  // a program that refuses its arguments reads nothing
    child.stdin.end(input);
  });
}

// The text of a file of the repository.
export function textOf(...path) {
  return readFileSync(join(repository, ...path), "utf8");
}

// How to start the server for this agent.
export function serverParameters(home, agent) {
  return {
    command: binary,
    args: ["--client", agent],
    env: { PATH: process.env.PATH ?? "", HOME: home.path, MEETING_NOTES_HOME: home.path, TZ: "Asia/Taipei" },
    stderr: "ignore",
  };
}

// The ways in which a client can talk to the server. connect() returns an open client;
// onListChanged(client, f) calls f whenever the server says that its tools changed.
export const connections = [
  {
    name: "client library 1.x, initialize",
    async connect(home, agent) {
      const client = new Client1(identity);
      await client.connect(new Transport1(serverParameters(home, agent)));
      return client;
    },
    onListChanged: (client, f) => client.setNotificationHandler(ToolListChangedNotificationSchema, f),
  },
  {
    name: "client library 2.x, initialize",
    async connect(home, agent) {
      const client = new Client2(identity, { versionNegotiation: { mode: "legacy" } });
      await client.connect(new Transport2(serverParameters(home, agent)));
      return client;
    },
    onListChanged: (client, f) => client.setNotificationHandler(kListChanged, f),
  },
  {
    name: "client library 2.x, version in every request",
    perRequest: true,
    async connect(home, agent) {
      const client = new Client2(identity, { versionNegotiation: { mode: { pin: "2026-07-28" } } });
      await client.connect(new Transport2(serverParameters(home, agent)));
      return client;
    },
    onListChanged: (client, f) => client.setNotificationHandler(kListChanged, f),
  },
];

// Throws when `value` does not fit the JSON Schema.
export function check(schema, value) {
  const ajv = addFormats.default(new Ajv({ strict: false, allErrors: true }));
  const validate = ajv.compile(schema);
  if (!validate(value)) throw new Error(ajv.errorsText(validate.errors));
}

// Throws when `schema` is not a valid JSON Schema.
export function checkSchema(schema) {
  const ajv = addFormats.default(new Ajv({ strict: false }));
  if (!ajv.validateSchema(schema)) throw new Error(ajv.errorsText(ajv.errors));
  ajv.compile(schema);
}

export async function until(condition, what) {
  for (let waited = 0; waited < 5000; waited += 20) {
    if (condition()) return;
    await new Promise((done) => setTimeout(done, 20));
  }
  throw new Error(`never happened: ${what}`);
}
