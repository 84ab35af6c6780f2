// A short session of the official MCP client with the example server: each
// call and the text the model reads.
//   node session.mjs SERVER DB ROOT
import { connect, text } from "./client.mjs";

const [server, db, root] = process.argv.slice(2);
const client = await connect(server, ["--db", db, "--root", root, "--budget", "1200"]);
const { tools } = await client.listTools();
console.log(`connected to ${client.getServerVersion().name}; tools: ${tools.map((t) => t.name).join(", ")}\n`);

async function call(name, args) {
  const result = await client.callTool({ name, arguments: args });
  console.log(`> ${name} ${JSON.stringify(args)}${result.isError ? "  (isError)" : ""}\n${text(result)}\n`);
  return text(result);
}

await call("status", {});
// The page is cut to the server's budget (1200 bytes here); its hint names
// the offset to go on from.
const next = /offset=(\d+)/.exec(await call("search", { query: "" }));
if (next) await call("search", { query: "", offset: Number(next[1]) });
await call("symbol", { fqn: "shop.cart.Cart.total" });
await call("file", { path: "shop/inventory.py" });
await call("references", { fqn: "shop.pricing.apply_discounts" });
await call("wiki", { action: "ask", query: "How are discounts applied to the total?", token_budget: 180 });
await call("search", { query: 42 });
await client.close();
