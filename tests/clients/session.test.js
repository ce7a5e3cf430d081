// Real clients over real pipes: what each of them gets from the built program.
import assert from "node:assert/strict";
import { existsSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { afterEach, beforeEach, describe, test } from "node:test";

import { SampleHome, check, checkSchema, connections, until } from "./support.js";

const everything = [
  "list_meetings", "get_meeting", "search_transcripts", "get_transcript", "get_person",
  "process_recording", "get_job", "add_term",
];
const decisionMeeting = "rec-2026-10-07-deposit-decision";
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

    test("a job that nobody started is an error result that says what to do", async () => {
      home.grant("claude-code", { tools: allPermissions });
      await connect();
      const result = await call("get_job", { id: "job-20261012-153000-ab12cd" });
      assert.equal(result.isError, true);
      assert.equal(result.content[0].text, "Error executing tool get_job: No job " +
        "job-20261012-153000-ab12cd. Next step: start one with process_recording");
    });

    // The structured content of a call that must succeed, checked against what the listing promises.
    const answerOf = async (name, args) => {
      const { tools } = await client.listTools();
      const result = await call(name, args);
      assert.ok(!result.isError, result.content[0].text);
      assert.deepEqual(JSON.parse(result.content[0].text), result.structuredContent);
      check(tools.find((tool) => tool.name === name).outputSchema, result.structuredContent);
      return result.structuredContent;
    };

    test("get_meeting gives the sections that are asked for, with clock and line", async () => {
      await connect();
      const meeting = await answerOf("get_meeting",
        { id: decisionMeeting, sections: ["quotes", "decisions", "no_such_section"] });
      assert.deepEqual(Object.keys(meeting),
        ["id", "title", "date", "started_at", "duration_sec", "source", "visibility", "tags", "index",
          "decisions", "quotes", "transcript_lines"]);
      assert.equal(meeting.decisions.length, 5);
      assert.deepEqual(meeting.decisions[2], {
        text: "四十一台舊車換控制板，未換完的不出租", owner: "張育誠", t_start: 3804.4, line: "L45",
        clock: "1:03:24",
      });
      assert.deepEqual(meeting.quotes.map((quote) => quote.clock), ["03:20", "56:22"]);
      assert.equal(meeting.transcript_lines, 59);
    });

    test("get_meeting without sections gives all that the meeting has, and no action items", async () => {
      await connect();
      const meeting = await answerOf("get_meeting", { id: decisionMeeting });
      const sections = ["verdict", "summary", "decisions", "chapters", "viewpoints", "open_questions",
        "topics", "quotes", "people", "digest", "user_notes"];
      assert.deepEqual(Object.keys(meeting).slice(9, -1), sections);
      assert.equal(meeting.viewpoints[0].points[1].clock, "1:13:30");
    });

    test("get_transcript around a decision gives the lines that prove it", async () => {
      home.grant("claude-code", { tools: { read_transcripts: true } });
      await connect();
      const { decisions } = await answerOf("get_meeting", { id: decisionMeeting, sections: ["decisions"] });
      const { line, t_start } = decisions[0];
      const { lines, count, truncated } = await answerOf("get_transcript",
        { id: decisionMeeting, from_sec: t_start, to_sec: t_start + 30 });
      assert.deepEqual(lines.map((one) => one.line_id), ["L51", "L52", "L53"]);
      assert.deepEqual([count, truncated], [3, false]);
      assert.deepEqual(Object.keys(lines[0]), ["line_id", "t_start", "t_end", "clock", "speaker", "text"]);
      assert.equal(lines[0].line_id, line);
      assert.equal(lines[0].clock, "1:13:15");
      assert.match(lines[0].text, /一律免押金/);
    });

    test("get_transcript says when the limit left lines out and when a range is empty", async () => {
      home.grant("claude-code", { tools: { read_transcripts: true } });
      await connect();
      const some = await answerOf("get_transcript", { id: decisionMeeting, limit: 2 });
      assert.deepEqual([some.count, some.truncated], [2, true]);
      const none = await answerOf("get_transcript", { id: decisionMeeting, from_sec: 10, to_sec: 5 });
      assert.deepEqual(none.lines, []);
      assert.match(none.note, /^This meeting has no transcript lines in that range\./);
    });

    test("get_person follows a name in the other script across meetings, oldest first", async () => {
      await connect();
      const person = await answerOf("get_person", { name: "周曉梅" });
      assert.equal(person.meeting_count, 6);
      const dates = ["2026-06-30", "2026-07-15", "2026-09-02", "2026-09-28", "2026-10-07", "2026-10-20"];
      assert.deepEqual(person.meetings.map((meeting) => meeting.date), dates);
      assert.deepEqual(person.talk_share_trend.map((one) => one.date), dates);
      assert.ok(person.meetings.every((meeting) => meeting.name_in_meeting === "周晓梅"));
      assert.ok(person.meetings.every((meeting) => meeting.role === "财务"));
      assert.deepEqual(person.talk_share_trend.map((one) => one.talk_share),
        [null, null, 0.241, 0.473, 0.152, 0.088]);
      const talked = person.meetings.reduce((sum, meeting) => sum + (meeting.talk_sec ?? 0), 0);
      assert.ok(Math.abs(person.total_talk_sec - talked) < 1e-6);
      assert.deepEqual(person.meetings[4].viewpoints.map((point) => point.clock), ["03:05", "1:13:30"]);
      assert.deepEqual(person.meetings[4].decisions_owned.map((decision) => decision.line), ["L48", "L52"]);
    });

    test("a hidden meeting and one that does not exist are told alike", async () => {
      home.grant("work-agent", { tools: { read_transcripts: true } });
      await connect("work-agent");
      for (const tool of ["get_meeting", "get_transcript"]) {
        const messages = [];
        for (const id of ["rec-2026-09-28-insurance-claims", "rec-no-such-meeting"]) {
          const result = await call(tool, { id });
          assert.equal(result.isError, true);
          messages.push(result.content[0].text.replace(id, "ID"));
        }
        assert.equal(messages[0], messages[1]);
        assert.match(messages[0], /No meeting with id 'ID' is available to this client\./);
      }
    });

    test("add_term is refused until agents.json grants it, then writes the dictionary", async () => {
      await connect();
      await client.listTools();
      let announced = 0;
      connection.onListChanged(client, () => {
        ++announced;
      });
      const term = { wrong: " 蝶沙 ", right: "碟煞" };
      const denied = await call("add_term", term);
      assert.equal(denied.isError, true);
      assert.match(denied.content[0].text, /^add_term is turned off for agent 'claude-code': it needs the permission add_terms/);
      assert.ok(!existsSync(join(home.path, "dictionary.json")));
      assert.equal(announced, 0);

      home.grant("claude-code", { tools: { add_terms: true } });
      const saved = await call("add_term", term);
      await until(() => announced === 1, "the notification");
      assert.ok(!saved.isError, saved.content[0].text);
      assert.equal(saved.structuredContent.created, true);
      const again = await answerOf("add_term", { ...term, tier: "auto" });
      assert.deepEqual(again, {
        saved: true, created: false, term: { right: "碟煞", wrong: "蝶沙", tier: "auto" }, dictionary_terms: 1,
        note: "Applies to the next processed meeting; existing meetings are not rewritten",
      });

      const dictionary = home.read("dictionary.json");
      assert.deepEqual(Object.keys(dictionary), ["_note", "self_name", "terms", "speakers"]);
      assert.equal(dictionary.terms.length, 1);
      const { updated_at, ...stored } = dictionary.terms[0];
      assert.deepEqual(stored, { wrong: "蝶沙", right: "碟煞", tier: "auto", updated_by: "mcp:claude-code" });
      assert.match(updated_at, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+0800$/);
    });

    test("add_term refuses the name of a participant as auto and leaves the dictionary as it is", async () => {
      home.grant("claude-code", { tools: { add_terms: true } });
      home.write("dictionary.json", { self_name: "Arlo", mine: [1], terms: [], speakers: [] });
      await connect();
      const refused = await call("add_term", { wrong: "maya okafor", right: "Maya O.", tier: "auto" });
      assert.equal(refused.isError, true);
      assert.equal(refused.content[0].text,
        "Error executing tool add_term: Refused as auto: 'maya okafor' is a person name in your speaker list " +
        "or meetings. Names and very short strings may only be hints. Next step: call add_term again with tier hint");
      assert.deepEqual(home.read("dictionary.json").terms, []);
      assert.equal((await answerOf("add_term", { wrong: "maya okafor", right: "Maya O." })).created, true);
      assert.deepEqual(home.read("dictionary.json").mine, [1]);
    });

    test("two servers over one data home lose none of each other's terms", async () => {
      home.grant("claude-code", { tools: { add_terms: true } });
      await connect();
      const other = await connection.connect(home, "claude-code");
      try {
        const adding = Array.from({ length: 20 }, (_, n) =>
          [client, other].map((one, server) => one.callTool({
            name: "add_term", arguments: { wrong: `wrong ${server} ${n}`, right: `right ${n}` },
          }))).flat();
        for (const result of await Promise.all(adding)) assert.ok(!result.isError, result.content[0].text);
      } finally {
        await other.close();
      }
      assert.equal(new Set(home.read("dictionary.json").terms.map((term) => term.wrong)).size, 40);
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
