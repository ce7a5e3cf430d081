// The permissions in examples/agents, as the built program carries them out, and docs/permissions.md,
// which shows them.
import assert from "node:assert/strict";
import { cpSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { afterEach, beforeEach, describe, test } from "node:test";

import { SampleHome, connections, repository, textOf } from "./support.js";

const kFolder = "examples/agents";
const kDay = 24 * 60 * 60 * 1000;
const [connection] = connections;
const decision = "rec-2026-10-07-deposit-decision";
const firstDay = "rec-2026-10-20-first-day-without-deposit";
const guestSees = ["rec-2026-10-16-hotel-channel-grand-harbour", "rec-2026-09-15-taichung-depot-walk"];

const kOnUnlessSaid = ["list_meetings", "get_meeting", "search_transcripts", "get_person"];
const kEverything = [
  "list_meetings", "get_meeting", "search_transcripts", "get_transcript", "get_person",
  "process_recording", "get_job", "add_term",
];

let home;
let clients;

beforeEach(() => {
  home = new SampleHome();
  clients = [];
});
afterEach(async () => {
  for (const client of clients) await client.close();
  home.remove();
});

// A client of that name, with what the tests ask it.
async function connect(agent = "claude-code") {
  const client = await connection.connect(home, agent);
  clients.push(client);
  const call = (name, args = {}) => client.callTool({ name, arguments: args });
  const meetings = async () => (await call("list_meetings", { limit: 50 })).structuredContent.meetings;
  return {
    call,
    meetings,
    ids: async () => (await meetings()).map((meeting) => meeting.id),
    tools: async () => (await client.listTools()).tools.map((tool) => tool.name),
    refusal: async (name, args) => {
      const result = await call(name, args);
      assert.equal(result.isError, true);
      return result.content[0].text;
    },
  };
}

const load = (name) => cpSync(join(repository, kFolder, name), join(home.path, "agents.json"));

// The local date of the server, which is started with the zone of Taipei: eight hours ahead all year.
const dayInTaipei = (instant) => new Date(instant + kDay / 3).toISOString().slice(0, 10);

const examples = {
  "transcripts.json": async () => {
    const agent = await connect();
    assert.deepEqual(await agent.tools(), kEverything.slice(0, 5));
    const { hits } = (await agent.call("search_transcripts", { query: "电辅车 押金" })).structuredContent;
    assert.ok(hits.some((hit) => hit.kind === "line"));
  },
  "find-only.json": async () => {
    const agent = await connect();
    assert.deepEqual(await agent.tools(), ["list_meetings", "search_transcripts"]);
    assert.match(await agent.refusal("get_meeting", { id: decision }), /it needs the permission read_notes/);
    const { hits } = (await agent.call("search_transcripts", { query: "押金" })).structuredContent;
    assert.ok(hits.some((hit) => hit.kind === "notes" && hit.text.includes("押金")), "by design");
  },
  "everything.json": async () => {
    const agent = await connect();
    assert.deepEqual(await agent.tools(), kEverything);
    assert.equal((await agent.ids()).length, 13);
  },
  "nothing.json": async () => {
    const agent = await connect();
    assert.deepEqual(await agent.tools(), []);
    assert.match(await agent.refusal("list_meetings"), /it needs the permission search_meetings/);
  },
  "two-agents.json": async () => {
    const claude = await connect();
    assert.deepEqual(await claude.tools(), [...kEverything.slice(0, 5), "add_term"]);
    assert.equal((await claude.ids()).length, 12);
    const cursor = await connect("cursor");
    assert.deepEqual(await cursor.tools(), ["list_meetings", "search_transcripts"]);
    assert.equal((await cursor.ids()).length, 7);
    assert.deepEqual(await (await connect("zed")).tools(), kOnUnlessSaid);
  },
  "tagged.json": async () => {
    const agent = await connect();
    const meetings = await agent.meetings();
    assert.equal(meetings.length, 7);
    assert.ok(meetings.every((meeting) => meeting.tags.includes("agents")));
    assert.match(await agent.refusal("get_meeting", { id: firstDay }), /^Error .* No meeting with id/);
  },
  "last-30-days.json": async () => {
    // Two copies of a sample, one of yesterday and one of too long ago, whatever the day is.
    const dayOf = (days) => dayInTaipei(Date.now() - days * kDay);
    for (const day of [dayOf(1), dayOf(40)]) {
      const folder = join(home.path, "recordings", `${day}-copy`);
      cpSync(join(home.path, "recordings/2026-10-20-first-day-without-deposit"), folder, { recursive: true });
      for (const name of ["notes.json", "session.json"]) {
        const file = join(folder, name);
        writeFileSync(file, readFileSync(file, "utf8").replaceAll("2026-10-20T", `${day}T`));
      }
    }
    const all = await (await connect("zed")).meetings();
    const limits = [dayOf(31), dayOf(30)]; // the clock may pass midnight meanwhile
    const expected = limits.map((since) =>
      all.filter((meeting) => meeting.date >= since).map((meeting) => meeting.id));
    const seen = await (await connect()).ids();
    assert.ok(expected.some((ids) => JSON.stringify(ids) === JSON.stringify(seen)), seen.join());
    assert.ok(seen.includes(`rec-${dayOf(1)}-copy`));
    assert.ok(!seen.includes(`rec-${dayOf(40)}-copy`));
  },
  "visibilities.json": async () => {
    const changes = JSON.parse(textOf(kFolder, "visibilities.json"));
    home.write("mcp-config.json", { ...home.read("mcp-config.json"), ...changes });
    const claude = await (await connect()).meetings();
    assert.equal(claude.find((meeting) => meeting.id === decision).visibility, "private");
    assert.ok(!claude.some((meeting) => meeting.id === firstDay));
    // Its tag was replaced, not added to: the meeting that is tagged in its own notes stays hidden.
    assert.equal(claude.length, 11);
    const cursor = await (await connect("cursor")).meetings();
    assert.ok(cursor.length > 2 && cursor.every((meeting) => meeting.visibility !== "private"));
    assert.ok(!cursor.some((meeting) => meeting.id === decision));
    assert.deepEqual(await (await connect("guest")).ids(), guestSees);
    home.grant("claude-code", { hide_private: false });
    assert.ok((await (await connect()).ids()).includes(firstDay));
  },
};

describe("examples of permissions", () => {
  test("every file has its check", () => {
    assert.deepEqual(readdirSync(join(repository, kFolder)).sort(), Object.keys(examples).sort());
  });

  for (const [name, check] of Object.entries(examples)) {
    test(`docs/permissions.md shows ${name} as it is`, () => {
      const block = `\n\`\`\`json\n${textOf(kFolder, name)}\`\`\`\n`;
      assert.ok(textOf("docs/permissions.md").includes(block), `no block that is ${name}`);
    });
    test(`${name} does what docs/permissions.md says`, async () => {
      if (name !== "visibilities.json") load(name);
      await check();
    });
  }

  test("docs/permissions.md names the tools, the label and the default of each permission", async () => {
    const rows = [...textOf("docs/permissions.md").matchAll(/^\| `(\w+)` \| (.+?) \| (.+?) \| .+? \| (on|off) \|$/gm)];
    const told = rows.flatMap(([, permission, label, tools, byDefault]) =>
      [...tools.matchAll(/`(\w+)`/g)].map(([, tool]) => ({ tool, permission, label, byDefault })));
    assert.deepEqual(told.map(({ tool }) => tool).sort(), [...kEverything].sort());

    const usual = await (await connect()).tools();
    home.grant("claude-code", { tools: { search_meetings: false, read_notes: false } });
    const agent = await connect();
    for (const { tool, permission, label, byDefault } of told) {
      assert.equal(usual.includes(tool) ? "on" : "off", byDefault, tool);
      assert.ok((await agent.refusal(tool)).includes(`it needs the permission ${permission} (${label})`), tool);
    }
  });

  test("a word that is not true takes a permission away, a word that is no scope is tagged", async () => {
    home.grant("claude-code", { tools: { read_notes: "yes" }, scope: "ALL", hide_private: 0 });
    const agent = await connect();
    assert.deepEqual(await agent.tools(), ["list_meetings", "search_transcripts"]);
    assert.equal((await agent.ids()).length, 7);
  });
});
