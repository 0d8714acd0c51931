// Reads a processed profile of the Firefox Profiler by the rules of its published schema, and prints
// what a viewer would show: of each process the sums by function, its threads and its markers.
//   node firefox.mjs FILE
import { readFileSync } from "node:fs";
import { gunzipSync } from "node:zlib";

const fail = (text) => {
  console.error(text);
  process.exit(1);
};

// All columns of a table have its length; none is missing.
const table = (holder, name, columns) => {
  const found = holder[name] ?? fail(`no ${name}`);
  for (const column of columns) {
    if (!Array.isArray(found[column]) || found[column].length !== found.length) {
      fail(`${name}.${column} does not have ${found.length} values`);
    }
  }
  return found;
};
const inBounds = (values, limit, what, allowNull = false) => {
  for (const value of values) {
    const good = Number.isInteger(value) ? value >= 0 && value < limit : allowNull && value === null;
    if (!good) fail(`${what}: ${value} is not below ${limit}`);
  }
};

const bytes = readFileSync(process.argv[2]);
const profile = JSON.parse(bytes[0] === 0x1f ? gunzipSync(bytes) : bytes);
if (profile.meta.preprocessedProfileVersion !== 48) fail("another version");
const schemas = new Set(profile.meta.markerSchema.map((schema) => schema.name));
if (!profile.meta.categories.some((category) => category.color === "grey")) fail("no category");

const processes = {};
for (const thread of profile.threads) {
  const strings = thread.stringArray.length;
  const funcs = table(thread, "funcTable",
    ["name", "isJS", "relevantForJS", "resource", "fileName", "lineNumber", "columnNumber"]);
  const frames = table(thread, "frameTable",
    ["address", "inlineDepth", "category", "subcategory", "func", "nativeSymbol", "innerWindowID",
      "implementation", "line", "column"]);
  const stacks = table(thread, "stackTable", ["frame", "category", "subcategory", "prefix"]);
  const samples = table(thread, "samples", ["stack", "time", "weight"]);
  const markers = table(thread, "markers",
    ["data", "name", "startTime", "endTime", "phase", "category"]);
  table(thread, "resourceTable", ["lib", "name", "host", "type"]);
  table(thread, "nativeSymbols", ["libIndex", "address", "name", "functionSize"]);
  inBounds(funcs.name, strings, "funcTable.name");
  inBounds(frames.func, funcs.length, "frameTable.func");
  inBounds(stacks.frame, frames.length, "stackTable.frame");
  stacks.prefix.forEach((prefix, i) => inBounds([prefix], i, "stackTable.prefix", true));
  inBounds(samples.stack, stacks.length, "samples.stack");
  inBounds(markers.name, strings, "markers.name");
  inBounds(markers.phase, 4, "markers.phase");
  if (typeof thread.pid !== "string") fail("a pid is a text");
  markers.data.forEach((data) => schemas.has(data.type) || fail(`no schema ${data.type}`));
  samples.time.forEach((time, i) => {
    if (i > 0 && time < samples.time[i - 1]) fail("samples.time falls");
  });
  const name = (stack) => thread.stringArray[funcs.name[frames.func[stacks.frame[stack]]]];
  const all = (processes[thread.pid] ??= {
    name: thread.processName, weightType: samples.weightType, total: 0, functions: {}, threads: [],
    markers: {},
  });
  all.threads.push([thread.name, thread.tid]);
  const factor = samples.weightType === "tracing-ms" ? 1e6 : 1; // ms as ns
  samples.stack.forEach((leaf, i) => {
    const weight = Math.round(samples.weight[i] * factor);
    all.total += weight;
    const seen = new Set();
    for (let stack = leaf; stack !== null; stack = stacks.prefix[stack]) {
      const sums = (all.functions[name(stack)] ??= { own: 0, total: 0 });
      sums.own += stack === leaf ? weight : 0;
      if (!seen.has(name(stack))) sums.total += weight;
      seen.add(name(stack));
    }
  });
  markers.name.forEach((marker, i) => {
    const text = thread.stringArray[marker];
    const sums = (all.markers[text] ??= { count: 0, ns: 0 });
    sums.count++;
    sums.ns += Math.round(((markers.endTime[i] ?? markers.startTime[i]) - markers.startTime[i]) * 1e6);
  });
}
for (const counter of profile.counters) {
  const samples = table(counter, "samples", ["time", "count"]);
  inBounds([counter.mainThreadIndex], profile.threads.length, "mainThreadIndex");
  samples.time.forEach((time, i) => i === 0 || time >= samples.time[i - 1] || fail("a counter's time"));
}
console.log(JSON.stringify({ processes, counters: profile.counters.map((counter) => counter.name) }));
