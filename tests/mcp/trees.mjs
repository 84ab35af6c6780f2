// Work trees made for a test, kestrune-index run on them, and a server's
// tools called on the index, through the official MCP client.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";

import { connect, text } from "./client.mjs";

// makeTree: a work tree of `files` (path: text or bytes) at `root`, without git.
export function makeTree(root, files) {
  for (const [path, content] of Object.entries(files)) {
    mkdirSync(join(root, path, ".."), { recursive: true });
    writeFileSync(join(root, path), content);
  }
  return root;
}

// runIndexer: the indexer run to its end on `repo`, which a hang turns into a failure.
export function runIndexer(indexer, repo, db, { cwd, env, args = [], timeout = 60_000 } = {}) {
  const run = spawnSync(indexer, [repo, "--db", db, ...args], { encoding: "utf8", cwd, env, timeout });
  assert.equal(run.error, undefined, `the indexer did not finish: ${run.error}`);
  assert.equal(run.status, 0, run.stderr);
  return run;
}

// withServer: `body` given a caller of the server's tools on the index at `db`.
export async function withServer(server, db, root, body) {
  const client = await connect(server, ["--db", db, "--root", root]);
  try {
    return await body(async (name, args = {}) => JSON.parse(text(await client.callTool({ name, arguments: args }))));
  } finally {
    await client.close();
  }
}
