// A short session of the official MCP client with the example server: each
// call and the text the model reads. The shipped example's session asks
// about its shop; with --explore it asks about whatever the index holds.
//   node session.mjs SERVER DB ROOT [--explore]
import { connect, text } from "./client.mjs";

const [server, db, root, mode] = process.argv.slice(2);
const client = await connect(server, ["--db", db, "--root", root, "--budget", "1200"]);
const { tools } = await client.listTools();
console.log(`connected to ${client.getServerVersion().name}; tools: ${tools.map((t) => t.name).join(", ")}\n`);

async function call(name, args, { quiet = false } = {}) {
  const result = await client.callTool({ name, arguments: args });
  if (!quiet) console.log(`> ${name} ${JSON.stringify(args)}${result.isError ? "  (isError)" : ""}\n${text(result)}\n`);
  return text(result);
}

await call("status", {});
if (mode === "--explore") {
  // A class or function that something uses: the first of the first page
  // that has references.
  const { symbols } = JSON.parse(await call("search", { query: "", limit: 50 }));
  let used = symbols[0];
  for (const s of symbols.filter((s) => ["class", "function", "method"].includes(s.kind))) {
    if (JSON.parse(await call("references", { fqn: s.fqn, limit: 1 }, { quiet: true })).total_count > 0) {
      used = s;
      break;
    }
  }
  if (used) {
    await call("symbol", { fqn: used.fqn });
    await call("file", { path: used.file });
    await call("references", { fqn: used.fqn, limit: 5 });
    await call("wiki", { action: "ask", query: `What does ${used.name} do?`, token_budget: 300 });
  }
  await call("architecture", {});
  await call("wiki", { action: "list", limit: 5 });
} else {
  // The page is cut to the server's budget (1200 bytes here); its hint names
  // the offset to go on from.
  const next = /offset=(\d+)/.exec(await call("search", { query: "" }));
  if (next) await call("search", { query: "", offset: Number(next[1]) });
  await call("symbol", { fqn: "shop.cart.Cart.total" });
  await call("file", { path: "shop/inventory.py" });
  await call("references", { fqn: "shop.pricing.apply_discounts" });
  await call("wiki", { action: "ask", query: "How are discounts applied to the total?", token_budget: 180 });
  await call("search", { query: 42 });
}
await client.close();
