// The messages in docs/troubleshooting.md and docs/permissions.md are the program's own: each is
// provoked here, or at least stands in the program.
import assert from "node:assert/strict";
import { chmodSync, cpSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { createServer } from "node:http";
import { join } from "node:path";
import { after, before, describe, test } from "node:test";

import { SampleHome, binary, run, textOf } from "./support.js";

const kKey = `velta_pat_${"k".repeat(43)}`;
const kTranscripts = { tools: { read_transcripts: true } };

// What cannot be provoked on every computer: a Python may be installed where the program looks.
const kOnlyInProgram = [/No Python 3\.11/];

// The quoted messages of a page, one a line; "…" stands for what differs.
function messagesOf(page) {
  const blocks = [...textOf(page).matchAll(/^( *)```text\n([^]*?)\n\1```$/gm)];
  return blocks.flatMap(([, , lines]) => lines.split("\n").map((line) => line.trim()));
}

const escaped = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
const patternOf = (message) => new RegExp(`^${message.split("…").map(escaped).join(".*")}$`);

// One session with the program: the lines of standard error, and every text of the answers.
async function session(home, { args = ["--client", "claude-code"], env = {}, calls = [] } = {}) {
  const requests = calls.map(([name, parameters = {}], id) =>
    JSON.stringify({ jsonrpc: "2.0", id, method: "tools/call", params: { name, arguments: parameters } }));
  const { stdout, stderr } = await run(binary, args, {
    env: { HOME: home.root, MEETING_NOTES_HOME: home.path, ...env }, input: requests.join("\n") + "\n",
  });
  const results = stdout.split("\n").filter(Boolean).map((line) => JSON.parse(line).result);
  const said = stderr.split("\n");
  for (const { isError, content, structuredContent } of results) {
    if (isError) said.push(content[0].text);
    const pending = [structuredContent];
    while (pending.length > 0) {
      const value = pending.pop();
      if (typeof value === "string") said.push(value);
      if (typeof value === "object" && value !== null) pending.push(...Object.values(value));
    }
  }
  return { said, results };
}

// A data home for one scenario; gives what the program said.
async function inHome(prepare, options) {
  const home = new SampleHome();
  try {
    const more = await prepare?.(home);
    return (await session(home, { ...options, ...more })).said;
  } finally {
    home.remove();
  }
}

const list = [["list_meetings"]];
const webWith = (env) => inHome(() => {}, { env, calls: list });

// The web service, as far as it refuses.
async function webRefusing(status, body) {
  const service = createServer((_, response) => response.writeHead(status).end(JSON.stringify(body)));
  await new Promise((done) => service.listen(0, "127.0.0.1", done));
  try {
    return await webWith({ VELTA_TOKEN: kKey, VELTA_API_BASE: `http://127.0.0.1:${service.address().port}` });
  } finally {
    service.close();
  }
}

// A checkout whose pipeline is the given shell script.
function pipelineIn(home, script) {
  const checkout = join(home.root, "checkout");
  mkdirSync(join(checkout, "pipeline"), { recursive: true });
  writeFileSync(join(checkout, "pipeline/process_meeting.py"), script);
  writeFileSync(join(home.root, "talk.m4a"), "");
  return { VELTA_REPO: checkout, VELTA_PIPELINE_PYTHON: "/bin/sh", ELEVENLABS_API_KEY: "none" };
}

// Runs a job to its end; gives what get_job says to each of the clients.
async function jobEnding(script, clients, sources) {
  const home = new SampleHome();
  try {
    const env = pipelineIn(home, script);
    const grant = { tools: { process_recordings: true } };
    home.write("agents.json", { agents: Object.fromEntries(clients.map((client) => [client, grant])) });
    if (sources) home.write("mcp-config.json", { ...home.read("mcp-config.json"), sources: sources(home) });
    const { results } = await session(home,
      { args: ["--client", clients[0]], env, calls: [["process_recording", { path: join(home.root, "talk.m4a") }]] });
    const calls = [["get_job", { id: results[0].structuredContent.job_id }]];
    const said = [];
    for (const client of clients) {
      const ask = () => session(home, { args: ["--client", client], env, calls });
      let answer = await ask();
      for (let asked = 1; answer.results[0].structuredContent.state === "running"; ++asked) {
        assert.ok(asked < 500, "the job never ended");
        await new Promise((resolve) => setTimeout(resolve, 20));
        answer = await ask();
      }
      said.push(...answer.said);
    }
    return said;
  } finally {
    home.remove();
  }
}

const setConfig = (home, change) => home.write("mcp-config.json", { ...home.read("mcp-config.json"), ...change });
const startedWith = (...args) => inHome(() => {}, { args });

const scenarios = {
  "arguments": () => startedWith("--cleint", "claude-code"),
  "two arguments as one": () => startedWith("--client claude-code"),
  "http": () => startedWith("--http"),
  "a healthy start": () => inHome((home) => home.grant("claude-code", kTranscripts)),
  "nothing granted": () => inHome(() => {}, { calls: [["get_transcript", { id: "x" }]] }),
  "another name": () => inHome((home) => home.grant("claude", kTranscripts)),
  "agents.json broken": () => inHome((home) => writeFileSync(join(home.path, "agents.json"), "{")),
  "words of agents.json": () => inHome((home) =>
    home.grant("claude-code", { tools: { read_transcript: true }, scope: "last_month" })),
  "no notes": () => inHome((home) => setConfig(home, { sources: [] }), { calls: list }),
  "a broken file": () => inHome((home) =>
    writeFileSync(join(home.path, "recordings/2026-10-07-deposit-decision/notes.json"), "[]")),
  "broken sources": () => inHome((home) =>
    setConfig(home, { sources: [{ type: "recordings" }, { type: "recording" }] })),
  "one id twice": () => inHome((home) => {
    const from = join(home.path, "recordings/2026-10-07-deposit-decision");
    cpSync(from, join(home.path, "recordings/2026-10-07 deposit decision"), { recursive: true });
  }),
  "no visibility": () => inHome(() => {}, { args: ["--client", "nobody"], calls: list }),
  "nothing in the scope": () => inHome((home) => {
    home.grant("claude-code", { scope: "tagged" });
    setConfig(home, {
      sources: [{ type: "legacy", path: join(home.path, "legacy") }],
      tag_overrides: { "legacy-2026-07-15-founders-offsite": [] },
    });
  }, { calls: list }),
  "no match": () => inHome(() => {},
    { calls: [["list_meetings", { query: "zeppelin" }], ["search_transcripts", { query: "zeppelin" }],
      ["get_meeting", { id: "x" }]] }),
  "no key": () => webWith({}),
  "web turned off": () => inHome((home) => setConfig(home, { cloud: { enabled: false } }), { calls: list }),
  "an open key file": () => inHome((home) => {
    writeFileSync(join(home.path, "cloud-token"), kKey);
    chmodSync(join(home.path, "cloud-token"), 0o644);
  }, { calls: list }),
  "a wrong key": () => webWith({ VELTA_TOKEN: "secret" }),
  "an expired key": () => webRefusing(401, { cause: "token expired" }),
  "a refused key": () => webRefusing(401, {}),
  "too many calls": () => webRefusing(429, {}),
  // Nobody listens on the port for reserved use.
  "no network": () => webWith({ VELTA_TOKEN: kKey, VELTA_API_BASE: "http://127.0.0.1:1" }),
  "a web address without https": () => webWith({ VELTA_TOKEN: kKey, VELTA_API_BASE: "http://web.invalid" }),
  "recordings refused": () => inHome((home) => {
    home.grant("claude-code", { tools: { process_recordings: true } });
    for (const name of ["notes.txt", "talk.m4a"]) writeFileSync(join(home.root, name), "");
    return { calls: ["none.m4a", "notes.txt", "talk.m4a"].map((name) =>
      ["process_recording", { path: join(home.root, name) }]) };
  }, { env: { VELTA_REPO: "/nonexistent" } }),
  "a pipeline that says nothing": () => jobEnding("exit 1\n", ["claude-code", "work-agent"]),
  "a pipeline whose meeting is nowhere": () => jobEnding(
    "printf '{\"step\":\"done\",\"state\":\"done\"}' >\"$1/status.json\"\n", ["claude-code"],
    (home) => [{ type: "legacy", path: join(home.path, "legacy") }]),
  "a name as auto": () => inHome((home) => home.grant("claude-code", { tools: { add_terms: true } }),
    { calls: [["add_term", { wrong: "maya okafor", right: "Maya O.", tier: "auto" }],
      ["add_term", { wrong: "a b c", right: "<b>" }]] }),
  "no activity log": () => inHome((home) => mkdirSync(join(home.path, "activity.jsonl")), { calls: list }),
};

describe("messages that the pages quote", () => {
  const said = new Set();
  let program;

  before(async () => {
    for (const scenario of Object.values(scenarios)) for (const line of await scenario()) said.add(line);
    program = readFileSync(binary);
  });
  after(() => said.clear());

  for (const page of ["docs/troubleshooting.md", "docs/permissions.md"]) {
    test(`${page} quotes some`, () => assert.ok(messagesOf(page).length > 0));

    for (const message of messagesOf(page)) {
      test(`${page}: ${message.slice(0, 90)}`, () => {
        if (kOnlyInProgram.some((pattern) => pattern.test(message))) {
          const text = message.replace(/^Error executing tool \w+: /, "");
          assert.ok(program.includes(text), "not in the program");
        } else {
          const pattern = patternOf(message);
          assert.ok([...said].some((line) => pattern.test(line)), "the program never said that");
        }
      });
    }
  }

  test("docs/troubleshooting.md names the version of the program", async () => {
    const { stdout } = await run(binary, ["--version"]);
    assert.ok(textOf("docs/troubleshooting.md").includes(`\`${stdout.trim()}\``));
  });
});
