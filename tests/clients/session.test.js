// Real clients over real pipes: what each of them gets from the built program.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { afterEach, beforeEach, describe, test } from "node:test";

import { SampleHome, check, checkSchema, connections, until } from "./support.js";

const everything = [
  "list_meetings", "get_meeting", "search_transcripts", "get_transcript", "get_person",
  "process_recording", "get_job", "add_term",
];
const allPermissions = {
  read_transcripts: true, process_recordings: true, add_terms: true,
};

for (const connection of connections) {
  describe(connection.name, () => {
    let home;
    let client;

    const connect = async (agent = "claude-code") => (client = await connection.connect(home, agent));
    const call = (name, args = {}) => client.callTool({ name, arguments: args });

    beforeEach(() => {
      home = new SampleHome();
    });
    afterEach(async () => {
      await client?.close();
      client = undefined;
      home.remove();
    });

    test("the server says who it is and how to use it", async () => {
      await connect();
      assert.deepEqual(client.getServerVersion(), { name: "velta", version: "0.2.0" });
      assert.match(client.getInstructions(), /^Meeting notes from Arlo's own recordings/);
      assert.deepEqual(client.getServerCapabilities().tools, { listChanged: true });
    });

    test("without agents.json an agent gets the search and notes tools", async () => {
      await connect();
      const names = (await client.listTools()).tools.map((tool) => tool.name);
      assert.deepEqual(names, ["list_meetings", "get_meeting", "search_transcripts", "get_person"]);
    });

    test("with all permissions every tool is listed, each with valid schemas", async () => {
      home.grant("claude-code", { tools: allPermissions });
      await connect();
      const { tools } = await client.listTools();
      assert.deepEqual(tools.map((tool) => tool.name), everything);
      for (const tool of tools) {
        checkSchema(tool.inputSchema);
        checkSchema(tool.outputSchema);
        assert.equal(tool.inputSchema.title, `${tool.name}Arguments`);
        assert.equal(typeof tool.annotations.readOnlyHint, "boolean");
        assert.ok(tool.description.length > 0);
      }
    });

    test("an input schema accepts the arguments that are meant and refuses a missing one", async () => {
      await connect();
      const { tools } = await client.listTools();
      const search = tools.find((tool) => tool.name === "search_transcripts");
      check(search.inputSchema, { query: "押金", limit: 5, speaker: null });
      assert.throws(() => check(search.inputSchema, { limit: 5 }), /query/);
      assert.throws(() => check(search.inputSchema, { query: 7 }), /string/);
    });

    test("list_meetings answers newest first, as text and as structured content", async () => {
      await connect();
      const { tools } = await client.listTools();
      const result = await call("list_meetings", { limit: 50 });
      assert.ok(!result.isError);
      assert.deepEqual(JSON.parse(result.content[0].text), result.structuredContent);
      check(tools.find((tool) => tool.name === "list_meetings").outputSchema, result.structuredContent);

      const { meetings, count } = result.structuredContent;
      assert.equal(count, 12); // thirteen samples, one of them tagged private
      assert.equal(meetings[0].id, "rec-2026-10-20-first-day-without-deposit");
      const dates = meetings.map((meeting) => meeting.date);
      assert.deepEqual(dates, [...dates].sort().reverse());
      assert.deepEqual(new Set(meetings.map((meeting) => meeting.source)),
        new Set(["recordings", "imported", "legacy"]));
    });

    test("a Simplified query finds a Traditional line", async () => {
      home.grant("claude-code", { tools: { read_transcripts: true } });
      await connect();
      const { tools } = await client.listTools();
      const result = await call("search_transcripts", { query: "电辅车 押金" });
      assert.ok(!result.isError);
      check(tools.find((tool) => tool.name === "search_transcripts").outputSchema,
        result.structuredContent);
      const line = result.structuredContent.hits.find((hit) => hit.kind === "line");
      assert.ok(line, "a transcript line was found");
      const found = result.structuredContent.hits.find((hit) =>
        hit.meeting_id === "rec-2026-10-07-deposit-decision" && hit.line_id === "L1");
      assert.equal(found.clock, "00:04");
      assert.equal(found.speaker, "Arlo 林");
      assert.ok(found.text.includes("電輔車的押金"));
    });

    test("without read_transcripts search looks into notes and digest only, and says so", async () => {
      await connect();
      const { structuredContent } = await call("search_transcripts", { query: "押金" });
      assert.equal(structuredContent.transcripts_searched, false);
      assert.ok(structuredContent.count > 0);
      assert.ok(structuredContent.hits.every((hit) => hit.kind !== "line"));
    });

    test("a client sees the visibilities that its name has, and a private tag hides", async () => {
      await connect("work-agent");
      const { meetings } = (await call("list_meetings", { limit: 50 })).structuredContent;
      assert.ok(meetings.length > 0);
      assert.ok(meetings.every((meeting) => ["work", "shared"].includes(meeting.visibility)));
      assert.ok(meetings.every((meeting) => !meeting.tags.includes("private")));
    });

    test("hide_private false shows the meeting that is tagged private", async () => {
      home.grant("claude-code", { hide_private: false });
      await connect();
      const { meetings, count } = (await call("list_meetings", { limit: 50 })).structuredContent;
      assert.equal(count, 13);
      assert.ok(meetings.some((meeting) => meeting.tags.includes("private")));
    });

    test("a client that may see nothing is told why", async () => {
      await connect("nobody");
      const { structuredContent } = await call("list_meetings");
      assert.equal(structuredContent.count, 0);
      assert.match(structuredContent.note, /^No meetings are visible to this client\./);
    });

    test("a wrong argument is an error result, and the session goes on", async () => {
      await connect();
      const result = await call("list_meetings", { limit: 5.5 });
      assert.equal(result.isError, true);
      assert.equal(result.content[0].text,
        "Error executing tool list_meetings: argument limit must be an integer, got 5.5");
      assert.ok(!(await call("list_meetings")).isError);
    });

    test("a tool that is turned off is an error result that says what to do", async () => {
      await connect();
      const result = await call("get_transcript", { id: "rec-2026-10-07-deposit-decision" });
      assert.equal(result.isError, true);
      assert.match(result.content[0].text,
        /^get_transcript is turned off for agent 'claude-code': it needs the permission read_transcripts/);
      assert.ok(result.content[0].text.includes(join(home.path, "agents.json")));
    });

    test("a tool that this version lacks is an error result that says so", async () => {
      home.grant("claude-code", { tools: allPermissions });
      await connect();
      const result = await call("get_job", { id: "job-20261012-153000-ab12cd" });
      assert.equal(result.isError, true);
      assert.match(result.content[0].text, /^Error executing tool get_job: get_job is not part of this version yet/);
    });

    test("an unknown tool is an error result", async () => {
      await connect();
      const result = await call("no_such_tool");
      assert.equal(result.isError, true);
      assert.equal(result.content[0].text, "Unknown tool: no_such_tool");
    });

    test("an edit of agents.json is announced with the next call, once", async () => {
      await connect();
      await client.listTools();
      let announced = 0;
      connection.onListChanged(client, () => {
        ++announced;
      });
      await call("list_meetings");
      assert.equal(announced, 0);
      home.grant("claude-code", { tools: { read_transcripts: true } });
      await call("list_meetings");
      await until(() => announced === 1, "the notification");
      await call("list_meetings");
      assert.equal(announced, 1);
      const names = (await client.listTools()).tools.map((tool) => tool.name);
      assert.ok(names.includes("get_transcript"));
    });

    test("every call leaves a line in the activity log", async () => {
      await connect();
      await call("list_meetings", { query: "押金" });
      await call("get_transcript", { id: "x" });
      const lines = readFileSync(join(home.path, "activity.jsonl"), "utf8").trim().split("\n").map(JSON.parse);
      assert.deepEqual(lines.map((line) => [line.agent, line.tool, line.status]),
        [["claude-code", "list_meetings", "ok"], ["claude-code", "get_transcript", "denied"]]);
      assert.deepEqual(lines[0].args, { query: "押金" });
    });

    test("ping is answered", { skip: connection.perRequest && "the 2026-07-28 revision has no ping" }, async () => {
      await connect();
      await client.ping();
    });
  });
}
