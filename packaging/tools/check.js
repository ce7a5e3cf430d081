// Checks what scripts/package made: node check.js sbom|server|manifest FILE VERSION. Each rule that does
// not hold is one line, and the exit status is 1 then.
import { readFileSync } from "node:fs";

const problems = [];

function hold(holds, text) {
  if (!holds) problems.push(text);
}

const isText = (value) => typeof value === "string" && value.trim() !== "";
const isList = (value) => Array.isArray(value) && value.length > 0;

// SPDX 2.3, clauses 6, 7 and 11: what a document, a package and a relationship must have.
function checkSBOM(document, version) {
  hold(document.spdxVersion === "SPDX-2.3", "spdxVersion is not SPDX-2.3");
  hold(document.dataLicense === "CC0-1.0", "dataLicense is not CC0-1.0");
  hold(document.SPDXID === "SPDXRef-DOCUMENT", "the document's SPDXID is not SPDXRef-DOCUMENT");
  hold(isText(document.name), "no name");
  hold(
    /^https?:\/\/[^#\s]+-[0-9a-f]{40}$/.test(document.documentNamespace),
    "the namespace is not a URI that ends in the commit",
  );
  hold(
    /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$/.test(document.creationInfo?.created),
    "created is not a time in UTC",
  );
  const creators = document.creationInfo?.creators;
  hold(
    isList(creators) &&
      creators.every((creator) => /^(Person|Organization|Tool): \S/.test(creator)),
    "bad creators",
  );

  for (const item of document.packages ?? []) checkSBOMPackage(item);
  for (const name of ["velta-mcp", "pcre2", "utf8proc", "libcurl", "libstdc++"])
    hold(
      document.packages?.some((item) => item.name === name),
      `no package ${name}`,
    );
  const program = document.packages?.find((item) => item.name === "velta-mcp");
  hold(program?.versionInfo === version, `velta-mcp is not ${version}`);
  checkSBOMIds(document);
}

function checkSBOMPackage(item) {
  const name = item.name ?? "a package";
  hold(isText(item.name), "a package without name");
  hold(/^SPDXRef-[A-Za-z0-9.-]+$/.test(item.SPDXID), `${name}: bad SPDXID`);
  hold(
    /^(NOASSERTION|NONE|https:\/\/\S+)$/.test(item.downloadLocation),
    `${name}: bad downloadLocation`,
  );
  hold(item.filesAnalyzed === false, `${name}: filesAnalyzed without files`);
  hold(/^[0-9][0-9.]*$/.test(item.versionInfo), `${name}: no version was found`);
  for (const key of ["licenseConcluded", "licenseDeclared", "copyrightText"])
    hold(isText(item[key]), `${name}: no ${key}`);
  hold(/^(NOASSERTION|(Person|Organization): \S.*)$/.test(item.supplier), `${name}: bad supplier`);
  for (const { referenceType, referenceLocator } of item.externalRefs ?? []) {
    hold(referenceType === "purl", `${name}: a reference that is no purl`);
    hold(/^pkg:generic\/[a-z0-9]+@/.test(referenceLocator), `${name}: bad purl`);
    hold(
      referenceLocator.endsWith(`@${item.versionInfo}`),
      `${name}: its purl has another version`,
    );
  }
}

// Every id is there once, is related to something, and is one that exists.
function checkSBOMIds(document) {
  const ids = new Set([document.SPDXID]);
  for (const { SPDXID } of document.packages ?? []) {
    hold(!ids.has(SPDXID), `${SPDXID} is there twice`);
    ids.add(SPDXID);
  }
  const kinds = ["DESCRIBES", "DYNAMIC_LINK", "RUNTIME_DEPENDENCY_OF", "CONTAINS"];
  const related = new Set();
  for (const relationship of document.relationships ?? []) {
    const { spdxElementId, relationshipType, relatedSpdxElement } = relationship;
    hold(kinds.includes(relationshipType), `unknown relationship ${relationshipType}`);
    for (const id of [spdxElementId, relatedSpdxElement]) {
      hold(ids.has(id), `a relationship with ${id}, which is not there`);
      related.add(id);
    }
  }
  for (const id of ids) hold(related.has(id), `${id} is related to nothing`);
  for (const id of document.documentDescribes ?? [])
    hold(ids.has(id), `describes ${id}, which is not there`);
}

// The rules of the registry's schema that concern the keys used here. The schema itself is in no
// package registry, so this is a part of it, written down by hand.
function checkServer(server, version) {
  const known = [
    "$schema",
    "name",
    "title",
    "description",
    "version",
    "packages",
    "repository",
    "websiteUrl",
    "icons",
    "remotes",
    "_meta",
  ];
  for (const key of Object.keys(server)) hold(known.includes(key), `unknown key ${key}`);
  hold(
    /^[a-zA-Z0-9.-]+\/[a-zA-Z0-9._-]+$/.test(server.name) && server.name.length <= 200,
    "name is not a reversed domain, a slash and a name",
  );
  hold(
    isText(server.description) && server.description.length <= 100,
    "description is not of 1 to 100 characters",
  );
  hold(
    server.title === undefined || (isText(server.title) && server.title.length <= 100),
    "title is not of 1 to 100 characters",
  );
  hold(server.version === version, `version is not ${version}`);
  hold(isList(server.packages), "no packages");
  for (const item of server.packages ?? []) checkServerPackage(item, version);
}

function checkServerPackage(item, version) {
  const known = [
    "registryType",
    "identifier",
    "version",
    "fileSha256",
    "transport",
    "environmentVariables",
  ];
  for (const key of Object.keys(item)) hold(known.includes(key), `package: unknown key ${key}`);
  hold(item.registryType === "mcpb", "package: registryType is not mcpb");
  hold(
    /^https:\/\/\S+\/[^/\s]*mcp[^/\s]*$/.test(item.identifier),
    "package: the identifier of a bundle is an https address with mcp in its name",
  );
  hold(item.version === version, `package: version is not ${version}`);
  hold(/^[a-f0-9]{64}$/.test(item.fileSha256), "package: fileSha256 is not a SHA-256");
  hold(item.transport?.type === "stdio", "package: transport is not stdio");
  for (const variable of item.environmentVariables ?? []) checkVariable(variable);
}

function checkVariable(variable) {
  const known = [
    "name",
    "description",
    "isRequired",
    "isSecret",
    "format",
    "value",
    "default",
    "placeholder",
    "choices",
    "variables",
  ];
  hold(isText(variable.name), "variable: no name");
  for (const key of Object.keys(variable))
    hold(known.includes(key), `${variable.name}: unknown key ${key}`);
  hold(
    variable.format === undefined ||
      ["string", "number", "boolean", "filepath"].includes(variable.format),
    `${variable.name}: bad format`,
  );
  for (const key of ["isRequired", "isSecret"])
    hold(
      variable[key] === undefined || typeof variable[key] === "boolean",
      `${variable.name}: ${key} is no boolean`,
    );
}

// What a host would start on each platform when the user leaves every setting empty, and when not.
async function checkManifest(manifest, version) {
  hold(manifest.version === version, `version is not ${version}`);
  hold(
    manifest.user_config.connection_key.sensitive === true,
    "the connection key is not sensitive",
  );
  const { getMcpConfigForManifest } = await import("@anthropic-ai/mcpb");
  const start = (platform, userConfig) => {
    Object.defineProperty(process, "platform", { value: platform });
    return getMcpConfigForManifest({
      manifest,
      extensionPath: "/x",
      systemDirs: {},
      userConfig,
      pathSeparator: "/",
    });
  };
  for (const platform of manifest.compatibility.platforms) {
    const plain = await start(platform, {});
    hold(plain.command === `/x/bin/${platform}/velta-mcp`, `${platform}: starts ${plain.command}`);
    hold(
      plain.env.MEETING_NOTES_HOME === "" && plain.env.VELTA_TOKEN === "",
      `${platform}: an empty setting comes as ${JSON.stringify(plain.env)}`,
    );
    const set = await start(platform, { data_home: "/notes", connection_key: "key" });
    hold(
      set.env.MEETING_NOTES_HOME === "/notes" && set.env.VELTA_TOKEN === "key",
      `${platform}: the settings do not arrive`,
    );
  }
}

const checks = { sbom: checkSBOM, server: checkServer, manifest: checkManifest };
const [what, file, version] = process.argv.slice(2);
await checks[what](JSON.parse(readFileSync(file, "utf8")), version);
for (const problem of problems) console.log(`${file}: ${problem}`);
process.exitCode = problems.length > 0 ? 1 : 0;
