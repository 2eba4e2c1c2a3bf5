// Renders the conversion report from the JSON block the page carries.
"use strict";

(function () {
  const data = JSON.parse(document.getElementById("report-data").textContent);
  const summary = data.summary;

  // Control characters show as escapes ("\n" as a backslash and n), so a name or value never
  // passes for more than one line or row. The graphs' texts come that way already.
  function visible(text) {
    return text.replace(/[\x00-\x1f\x7f]/g, (c) => ({ "\n": "\\n", "\t": "\\t", "\r": "\\r" })[c] ||
      "\\x" + c.charCodeAt(0).toString(16).padStart(2, "0"));
  }
  // Attributes, inputs and changes are lines, "name\tvalue" where a line has two parts; the C++
  // side makes the names and values visible, so neither holds a tab or a line end.
  function lines(text) {
    return text ? text.slice(0, -1).split("\n") : [];
  }
  function pairs(text) {
    return lines(text).map((line) => {
      const tab = line.indexOf("\t");
      return tab < 0 ? [line, ""] : [line.slice(0, tab), line.slice(tab + 1)];
    });
  }
  // The nodes come in columns (see the C++ side); shared texts (marks, types, attribute sets,
  // change lists) are positions in data.strings, and per-node texts are arrays.
  const strings = data.strings || [];
  const columns = data.nodes;
  const parsedPairs = new Map();
  function sharedPairs(position) {
    if (!parsedPairs.has(position)) parsedPairs.set(position, pairs(strings[position]));
    return parsedPairs.get(position);
  }
  function sides(column) {
    // Attributes by name in a Map: a name such as "toString" is looked up as any other.
    return (i) => column.types[i] === null ? null : {
      type: strings[column.types[i]],
      get attrs() { return new Map(sharedPairs(column.attrs[i])); },
      get inputs() { return lines(column.inputs[i]); },
    };
  }
  const before = sides(columns.before);
  const after = sides(columns.after);
  const nodes = columns.names.map((name, i) => ({
    name: name, mark: strings[columns.marks[i]], before: before(i), after: after(i),
    changes: sharedPairs(columns.changes[i]),
  }));
  const byName = new Map();
  nodes.forEach((node, index) => {
    if (!byName.has(node.name)) byName.set(node.name, index);
  });

  // Small DOM helpers: el("td", {className: "x"}, "text", child...).
  function el(tag, props, ...children) {
    const element = document.createElement(tag);
    Object.assign(element, props || {});
    for (const child of children) {
      if (child === null || child === undefined) continue;
      element.append(child instanceof Node ? child : visible(String(child)));
    }
    return element;
  }
  function row(...cells) {
    return el("tr", null, ...cells.map((cell) => (cell instanceof Node && cell.tagName === "TD" ? cell : el("td", null, cell))));
  }
  function number(value) {
    return el("td", { className: "number" }, value);
  }
  function bytes(size) {
    const units = ["bytes", "KB", "MB", "GB"];
    let value = size;
    let unit = 0;
    while (value >= 1024 && unit < units.length - 1) {
      value /= 1024;
      unit += 1;
    }
    return (unit === 0 ? value : value.toFixed(1)) + " " + units[unit] + (unit ? " (" + size.toLocaleString("en") + " bytes)" : "");
  }
  function count(map) {
    return Object.values(map || {}).reduce((sum, n) => sum + n, 0);
  }

  // --- Summary ---------------------------------------------------------------------------
  function renderSummary() {
    document.getElementById("title").textContent = "Conversion report: " + visible(summary.model);
    document.title = "Conversion report: " + visible(summary.model);
    const outcome = document.getElementById("outcome");
    const succeeded = summary.exitCode === 0;
    outcome.textContent = succeeded ? "Converted" : "Failed: " + visible(summary.outcome);
    outcome.classList.add(succeeded ? "ok" : "failed");

    const table = document.getElementById("summary-table");
    const facts = [
      ["Model file", el("span", { className: "mono" }, summary.model)],
      ["Size", bytes(summary.size)],
      ["Framework", summary.framework + (summary.frameworkName ? " (" + summary.frameworkName + ")" : "")],
      ["Status", summary.status + (summary.exitCode === 0 ? " (converted)" : "")],
      ["Exit code", summary.exitCode],
      ["Nodes", summary.converted ? summary.nodesBefore + " \u2192 " + summary.nodesAfter : summary.nodesBefore + " (not converted)"],
      ["Operator types", summary.converted
        ? Object.keys(summary.opsBefore).length + " \u2192 " + Object.keys(summary.opsAfter).length
        : Object.keys(summary.opsBefore).length],
    ];
    for (const [name, value] of facts) table.append(el("tr", null, el("th", null, name), el("td", null, value)));

    const steps = document.getElementById("steps-table");
    steps.append(el("tr", null, el("th", null, "Step"), el("th", { className: "number" }, "ms")));
    for (const step of summary.steps) steps.append(row(step.name, number(step.ms.toFixed(1))));
    steps.append(el("tr", null, el("th", null, "total"), el("th", { className: "number" }, summary.totalMs.toFixed(1))));
  }

  // --- Operator support ------------------------------------------------------------------
  function renderSupport() {
    const body = document.getElementById("support-body");
    const support = data.support;
    if (!support.checked) {
      body.append(el("p", { className: "muted" }, summary.converted
        ? "Every operator is supported (the check report was not asked for)."
        : "The run wrote no check report: it stopped before or without the support check."));
      return;
    }
    const s = support.summary || {};
    if (support.types.length === 0) {
      body.append(el("p", { className: "support-ok" }, "Every operator is supported" + (s.total !== undefined ? " (" + s.total + " nodes checked)." : ".")));
      return;
    }
    if (s.total !== undefined) {
      body.append(el("p", null, s.failed + " of " + s.total + " nodes use operators that are not supported."));
    }
    const table = el("table", { id: "support-table" });
    table.append(el("tr", null, el("th", null, "Operator type"), el("th", { className: "number" }, "Nodes"), el("th", null, "Node names"), el("th", null, "Reason")));
    for (const entry of support.types) {
      const names = el("td", { className: "nodes-list" });
      entry.nodes.forEach((name, i) => {
        if (i > 0) names.append(", ");
        names.append(nodeLink(name));
      });
      table.append(row(el("code", null, entry.type), number(entry.count), names, entry.reasons.join("; ")));
    }
    body.append(table);
  }

  // --- Histograms ------------------------------------------------------------------------
  const SVG = "http://www.w3.org/2000/svg";
  function svgEl(tag, attrs, text) {
    const element = document.createElementNS(SVG, tag);
    for (const [key, value] of Object.entries(attrs)) element.setAttribute(key, value);
    if (text !== undefined) element.textContent = visible(String(text));
    return element;
  }
  function histogram(containerId, counts, scale) {
    const container = document.getElementById(containerId);
    const entries = Object.entries(counts || {}).sort((a, b) => b[1] - a[1] || a[0].localeCompare(b[0]));
    if (entries.length === 0) {
      container.append(el("p", { className: "muted" }, "No graph."));
      return;
    }
    const rowHeight = 18;
    const labelWidth = 150;
    const barWidth = 260;
    const width = labelWidth + barWidth + 70;
    const svg = svgEl("svg", { width: width, height: entries.length * rowHeight + 4, role: "img", "aria-label": "operator counts" });
    entries.forEach(([type, n], i) => {
      const y = i * rowHeight;
      svg.append(svgEl("text", { x: labelWidth - 6, y: y + 13, "text-anchor": "end", class: "bar-label" }, type));
      const w = Math.max(1, Math.round((n / scale) * barWidth));
      const bar = svgEl("rect", { x: labelWidth, y: y + 3, width: w, height: rowHeight - 6, class: "bar" });
      bar.append(svgEl("title", {}, type + ": " + n));
      svg.append(bar);
      svg.append(svgEl("text", { x: labelWidth + w + 4, y: y + 13, class: "bar-label" }, n));
    });
    container.append(svg);
  }
  function renderHistograms() {
    // One scale for both charts, so bars compare across them.
    const all = Object.values(summary.opsBefore || {}).concat(Object.values(summary.opsAfter || {}));
    const scale = Math.max(1, ...all);
    histogram("histogram-before", summary.opsBefore, scale);
    if (summary.converted) {
      histogram("histogram-after", summary.opsAfter, scale);
    } else {
      document.getElementById("histogram-after").append(el("p", { className: "muted" }, "The conversion failed: no converted graph."));
    }
  }

  // --- Changes ---------------------------------------------------------------------------
  const changes = [];
  nodes.forEach((node, index) => {
    for (const [kind, text] of node.changes) changes.push({ index: index, kind: kind, text: text });
  });
  const hiddenAtFirst = new Set();
  const shownKinds = new Set();
  const pageSize = 300;
  let limit = pageSize;

  function renderKindFilters() {
    const counts = new Map();
    for (const change of changes) counts.set(change.kind, (counts.get(change.kind) || 0) + 1);
    const filters = document.getElementById("kind-filters");
    for (const [kind, n] of [...counts.entries()].sort()) {
      const box = el("input", { type: "checkbox", checked: !hiddenAtFirst.has(kind), value: kind });
      if (box.checked) shownKinds.add(kind);
      box.addEventListener("change", () => {
        if (box.checked) shownKinds.add(kind); else shownKinds.delete(kind);
        limit = pageSize;
        renderChanges();
      });
      filters.append(el("label", null, box, " " + kind + " (" + n + ")"));
    }
  }
  function renderChanges() {
    const body = document.querySelector("#changes-table tbody");
    body.textContent = "";
    const text = document.getElementById("changes-filter").value.trim().toLowerCase();
    const matching = changes.filter((c) => shownKinds.has(c.kind) &&
      (text === "" || nodes[c.index].name.toLowerCase().includes(text) || c.text.toLowerCase().includes(text)));
    const fragment = document.createDocumentFragment();
    for (const change of matching.slice(0, limit)) {
      fragment.append(row(nodeLink(nodes[change.index].name), el("span", { className: "kind kind-" + change.kind.replace(/ /g, "-") }, change.kind), change.text));
    }
    body.append(fragment);
    const countLine = document.getElementById("changes-count");
    if (!summary.converted) {
      countLine.textContent = "The conversion failed, so there is no converted graph to compare with.";
    } else {
      countLine.textContent = matching.length + " of " + changes.length + " changes shown" + (matching.length > limit ? " (first " + limit + " listed)" : "") + ".";
    }
    document.getElementById("changes-more").hidden = matching.length <= limit;
    document.getElementById("changes-table").hidden = changes.length === 0;
  }

  // --- Node details and search -----------------------------------------------------------
  function nodeLink(name) {
    const link = el("button", { type: "button", className: "link mono" }, name);
    link.addEventListener("click", () => showNode(name, true));
    return link;
  }
  function consumers(side) {
    // Consumers per producer name, built once per side on first use.
    const cache = consumers.cache || (consumers.cache = new Map());
    if (!cache.has(side)) {
      const map = new Map();
      for (const node of nodes) {
        if (!node[side]) continue;
        for (const input of node[side].inputs) {
          if (input === "") continue;
          const producer = input.slice(0, input.lastIndexOf(":"));
          if (!map.has(producer)) map.set(producer, []);
          map.get(producer).push(node.name);
        }
      }
      cache.set(side, map);
    }
    return cache.get(side);
  }
  function list(items) {
    if (!items || items.length === 0) return el("span", { className: "muted" }, "none");
    const span = el("span", { className: "mono" });
    items.forEach((item, i) => {
      if (i > 0) span.append(", ");
      span.append(item === "" ? "(unconnected)" : item);
    });
    return span;
  }
  function pictureElement(prefix, index) {
    return document.getElementById(prefix + index);
  }
  function jumpTo(prefix, index) {
    const target = pictureElement(prefix, index);
    if (!target) return;
    document.querySelectorAll(".svg-box g.node.focus").forEach((g) => g.classList.remove("focus"));
    target.classList.add("focus");
    const box = target.closest(".svg-box");
    const area = target.getBoundingClientRect();
    const frame = box.getBoundingClientRect();
    box.scrollLeft += area.left - frame.left - frame.width / 2 + area.width / 2;
    box.scrollTop += area.top - frame.top - frame.height / 2 + area.height / 2;
    box.scrollIntoView({ block: "nearest" });
  }
  function showNode(name, scroll) {
    const details = document.getElementById("node-details");
    details.textContent = "";
    const index = byName.get(name);
    if (index === undefined) {
      details.append(el("p", { className: "muted" }, "No node named " + name + "."));
      return;
    }
    const node = nodes[index];
    const before = node.before;
    const after = node.after;
    const box = el("div", { className: "details", id: "node-" + index });
    box.append(el("h3", null, el("span", { className: "mono" }, node.name)));
    const facts = el("table", { className: "facts" });
    facts.append(el("tr", null, el("th", null, "Type"), el("td", null,
      before && after ? (before.type === after.type ? before.type : before.type + " \u2192 " + after.type)
        : before ? before.type + (summary.converted ? " (not in the converted graph)" : "") : after.type + " (added by conversion)")));
    if (node.mark === "unsupported") facts.append(el("tr", null, el("th", null, "Support"), el("td", null, "not supported")));
    for (const [side, label] of [["before", "Inputs before"], ["after", "Inputs after"]]) {
      if (node[side]) facts.append(el("tr", null, el("th", null, label), el("td", null, list(node[side].inputs))));
    }
    for (const [side, label] of [["before", "Outputs before"], ["after", "Outputs after"]]) {
      if (node[side]) facts.append(el("tr", null, el("th", null, label), el("td", null, list(consumers(side).get(node.name)))));
    }
    for (const [kind, text] of node.changes) {
      facts.append(el("tr", null, el("th", null, "Change: " + kind), el("td", null, text)));
    }
    box.append(facts);

    const attrsBefore = before ? before.attrs : new Map();
    const attrsAfter = after ? after.attrs : new Map();
    const names = new Set([...attrsBefore.keys(), ...attrsAfter.keys()]);
    const attrs = el("table", { className: "attrs" });
    attrs.append(el("tr", null, el("th", null, "Attribute"), el("th", null, "Before"), el("th", null, "After")));
    for (const attr of [...names].sort()) {
      const was = attrsBefore.get(attr);
      const is = attrsAfter.get(attr);
      const differs = summary.converted && was !== is;
      attrs.append(el("tr", null, el("td", { className: "mono" }, attr),
        el("td", { className: "mono" + (differs ? " differs" : "") }, was === undefined ? "\u2014" : was),
        el("td", { className: "mono" + (differs ? " differs" : "") }, is === undefined ? "\u2014" : is)));
    }
    box.append(el("h4", null, "Attributes"), names.size ? attrs : el("p", { className: "muted" }, "none"));

    const jumps = el("p");
    for (const [prefix, label] of [["s", "Show in source graph"], ["c", "Show in converted graph"]]) {
      if (pictureElement(prefix, index)) {
        const button = el("button", { type: "button", className: "jump-" + prefix }, label);
        button.addEventListener("click", () => jumpTo(prefix, index));
        jumps.append(button, " ");
      }
    }
    if (!jumps.childNodes.length) jumps.append(el("span", { className: "muted" }, "Not drawn in the graph pictures."));
    box.append(jumps);
    details.append(box);
    if (scroll) document.getElementById("find").scrollIntoView();
  }
  function renderSearch() {
    const input = document.getElementById("node-search");
    const results = document.getElementById("search-results");
    input.addEventListener("input", () => {
      results.textContent = "";
      const text = input.value.trim();
      if (text === "") return;
      if (byName.has(text)) {
        showNode(text, false);
        return;
      }
      const lower = text.toLowerCase();
      const found = [];
      for (const node of nodes) {
        if (node.name.toLowerCase().includes(lower)) found.push(node.name);
        if (found.length > 20) break;
      }
      if (found.length === 0) results.append(el("li", { className: "muted" }, "No node matches."));
      for (const name of found.slice(0, 20)) results.append(el("li", null, nodeLink(name)));
      if (found.length === 1) showNode(found[0], false);
    });
  }

  // --- Graph pictures --------------------------------------------------------------------
  function renderGraph() {
    const pictures = data.pictures;
    const note = document.getElementById("graph-note");
    if (pictures.error) {
      note.textContent = "The graph could not be drawn: " + pictures.error + ".";
    } else if (pictures.whole) {
      note.textContent = "Both graphs whole (" + pictures.nodes + " nodes between them). Click a node for its details.";
    } else {
      note.textContent = "The graphs have " + pictures.nodes + " nodes between them, too many to draw whole: shown are the " +
        pictures.drawn + " nodes around the unsupported and changed ones (one hop of their producers and consumers). Click a node for its details.";
    }
    for (const [id, svg, empty] of [["graph-source", pictures.source, "Nothing to draw."],
      ["graph-converted", pictures.converted, summary.converted ? "Nothing to draw." : "The conversion failed: no converted graph."]]) {
      const box = document.getElementById(id);
      if (svg) box.innerHTML = svg; else box.append(el("p", { className: "muted" }, empty));
      box.addEventListener("click", (event) => {
        const g = event.target.closest("g.node");
        if (!g) return;
        const node = nodes[Number(g.id.slice(1))];
        if (node) showNode(node.name, true);
      });
    }
  }

  renderSummary();
  renderSupport();
  renderHistograms();
  renderKindFilters();
  renderChanges();
  document.getElementById("changes-filter").addEventListener("input", () => {
    limit = pageSize;
    renderChanges();
  });
  document.getElementById("changes-more").addEventListener("click", () => {
    limit += pageSize;
    renderChanges();
  });
  renderSearch();
  renderGraph();
})();
