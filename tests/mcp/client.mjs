// The official MCP client (TypeScript SDK) connected to the example server
// over stdio, as an MCP host connects to it.
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

export { McpError } from "@modelcontextprotocol/sdk/types.js";

// connect: a client session with the server at `server`, started with `args`.
// The client passes the server only a few variables of its own environment;
// PYTHONPATH goes too, when set, as a client's "env" setting passes it, so
// that the Python server finds the response layer's module.
export async function connect(server, args) {
  const client = new Client({ name: "kestrune-example-client", version: "0.1.0" });
  const env = process.env.PYTHONPATH === undefined ? undefined : { PYTHONPATH: process.env.PYTHONPATH };
  await client.connect(new StdioClientTransport({ command: server, args, env, stderr: "ignore" }));
  return client;
}

// text: the one text block of a tool result.
export function text(result) {
  if (result.content.length !== 1 || result.content[0].type !== "text") {
    throw new Error(`expected one text block, got ${JSON.stringify(result.content)}`);
  }
  return result.content[0].text;
}
