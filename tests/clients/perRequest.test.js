// The revision in which every request names its protocol version and there is no initialize, as it
// looks on the wire.
import assert from "node:assert/strict";
import { afterEach, beforeEach, describe, test } from "node:test";

import { Client } from "@modelcontextprotocol/client";
import { StdioClientTransport } from "@modelcontextprotocol/client/stdio";

import { SampleHome, connections, serverParameters } from "./support.js";

const kRevision = "2026-07-28";
const kVersionKey = "io.modelcontextprotocol/protocolVersion";
const kServerKey = "io.modelcontextprotocol/serverInfo";

// Records what passes a connected transport; answers(method) are the results of its requests.
function recordWire(transport) {
  const sent = [];
  const received = [];
  const { send, onmessage } = transport;
  transport.send = (message, ...rest) => (sent.push(message), send.call(transport, message, ...rest));
  transport.onmessage = (message, ...rest) => (received.push(message), onmessage.call(transport, message, ...rest));
  const requests = (method) => sent.filter((message) => message.method === method);
  return {
    requests,
    answers: (method) =>
      requests(method).map(({ id }) => received.find((message) => message.id === id).result),
  };
}

describe("version in every request", () => {
  let home;
  let client;

  beforeEach(() => {
    home = new SampleHome();
  });
  afterEach(async () => {
    await client?.close();
    client = undefined;
    home.remove();
  });

  test("a client that asks for the revision gets it", async () => {
    client = await connections.find((connection) => connection.perRequest).connect(home, "claude-code");
    assert.equal(client.getProtocolEra(), "modern");
    assert.equal(client.getNegotiatedProtocolVersion(), kRevision);
  });

  test("a client that finds out by itself chooses it", async () => {
    client = new Client({ name: "velta-client-tests", version: "1.0.0" }, { versionNegotiation: { mode: "auto" } });
    await client.connect(new StdioClientTransport(serverParameters(home, "claude-code")));
    assert.equal(client.getNegotiatedProtocolVersion(), kRevision);
    assert.equal((await client.callTool({ name: "list_meetings", arguments: {} })).structuredContent.count, 12);
  });

  test("a client that knows only initialize gets the newest revision with it", async () => {
    client = await connections[1].connect(home, "claude-code");
    assert.equal(client.getNegotiatedProtocolVersion(), "2025-11-25");
  });

  test("answers are decorated, listings with a cache hint", async () => {
    client = await connections.find((connection) => connection.perRequest).connect(home, "claude-code");
    const wire = recordWire(client.transport);
    await client.listTools();
    await client.callTool({ name: "list_meetings", arguments: { limit: 1 } });

    assert.equal(wire.requests("tools/list")[0].params._meta[kVersionKey], kRevision);
    const [listing] = wire.answers("tools/list");
    assert.equal(listing.resultType, "complete");
    assert.equal(listing.ttlMs, 60000);
    assert.equal(listing.cacheScope, "private");
    assert.deepEqual(listing._meta[kServerKey], { name: "velta", version: "0.2.0" });

    const [answer] = wire.answers("tools/call");
    assert.equal(answer.resultType, "complete");
    assert.ok(!("ttlMs" in answer));
  });
});
