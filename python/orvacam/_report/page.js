"use strict";
// The viewer: the picture lies in a box and is moved and scaled as a whole; 1 is a frame pixel a screen pixel.
for (const viewer of document.querySelectorAll(".viewer")) {
  const stage = viewer.querySelector(".stage"), picture = viewer.querySelector(".pan");
  const output = viewer.querySelector("output"), first = picture.querySelector("img");
  const scale = Number(viewer.dataset.scale), width = Number(first.getAttribute("width")), height = Number(first.getAttribute("height"));
  let zoom = 1, x = 0, y = 0, fitted = true;
  picture.style.width = `${width}px`;
  const fit = () => Math.min(stage.clientWidth / width, stage.clientHeight / height);
  const keep = (at, size, room) => size <= room ? (room - size) / 2 : Math.min(0, Math.max(room - size, at));
  const show = () => {
    x = keep(x, width * zoom, stage.clientWidth);
    y = keep(y, height * zoom, stage.clientHeight);
    picture.style.transform = `translate(${x}px, ${y}px) scale(${zoom})`;
    viewer.classList.toggle("near", zoom >= 1);
    viewer.classList.toggle("fitted", fitted);  // then a finger scrolls the page
    const shown = zoom / scale;
    output.value = shown >= 1 ? `${+shown.toFixed(2)}:1` : `1:${+(1 / shown).toFixed(2)}`;
    viewer.dataset.zoom = shown.toFixed(4);
  };
  const to = (next, px = stage.clientWidth / 2, py = stage.clientHeight / 2) => {
    next = Math.min(16 * scale, Math.max(Math.min(fit(), scale), next));
    x = px - (px - x) * next / zoom;
    y = py - (py - y) * next / zoom;
    zoom = next;
    fitted = false;
    show();
  };
  const toFit = () => { zoom = fit(); fitted = true; show(); };
  const actions = {
    in: () => to(zoom * 1.5), out: () => to(zoom / 1.5), fit: toFit, one: () => to(scale),
    clip: button => button.setAttribute("aria-pressed", String(!viewer.classList.toggle("bare"))),
  };
  viewer.querySelector(".tools").addEventListener("click", event => {
    const action = actions[event.target.dataset.do];
    if (action) action(event.target);
  });
  stage.addEventListener("wheel", event => {
    event.preventDefault();
    const box = stage.getBoundingClientRect();
    to(zoom * Math.exp(-event.deltaY / 400), event.clientX - box.left, event.clientY - box.top);
  }, {passive: false});
  const fingers = new Map();
  stage.addEventListener("pointerdown", event => {
    fingers.set(event.pointerId, event);
    stage.setPointerCapture(event.pointerId);
  });
  stage.addEventListener("pointermove", event => {
    const before = fingers.get(event.pointerId);
    if (!before) return;
    const others = [...fingers.values()].filter(each => each.pointerId !== event.pointerId);
    fingers.set(event.pointerId, event);
    if (others.length === 0) {
      x += event.clientX - before.clientX;
      y += event.clientY - before.clientY;
      fitted = false;
      show();
    } else {
      const box = stage.getBoundingClientRect(), other = others[0];
      const apart = finger => Math.hypot(finger.clientX - other.clientX, finger.clientY - other.clientY) || 1;
      to(zoom * apart(event) / apart(before), (event.clientX + other.clientX) / 2 - box.left,
         (event.clientY + other.clientY) / 2 - box.top);
    }
  });
  for (const end of ["pointerup", "pointercancel"])
    stage.addEventListener(end, event => fingers.delete(event.pointerId));
  stage.addEventListener("dblclick", event => {
    const box = stage.getBoundingClientRect();
    fitted ? to(scale, event.clientX - box.left, event.clientY - box.top) : toFit();
  });
  stage.addEventListener("keydown", event => {
    const moves = {ArrowLeft: [60, 0], ArrowRight: [-60, 0], ArrowUp: [0, 60], ArrowDown: [0, -60]};
    const keys = {"+": "in", "=": "in", "-": "out", "0": "fit", "1": "one"};
    if (keys[event.key]) actions[keys[event.key]]();
    else if (moves[event.key]) { x += moves[event.key][0]; y += moves[event.key][1]; show(); }
    else return;
    event.preventDefault();
  });
  new ResizeObserver(() => fitted ? toFit() : show()).observe(stage);
  toFit();
}
// The search: rows that hold every word.
for (const input of document.querySelectorAll("[data-search]")) {
  const rows = [...document.getElementById(input.dataset.search).tBodies[0].rows];
  const texts = rows.map(row => row.textContent.toLowerCase());
  const count = input.closest("section").querySelector(".count");
  input.addEventListener("input", () => {
    const words = input.value.toLowerCase().split(/\s+/).filter(Boolean);
    let found = 0;
    rows.forEach((row, i) => {
      row.hidden = !words.every(word => texts[i].includes(word));
      found += row.hidden ? 0 : 1;
    });
    count.textContent = words.length ? `${found} of ${rows.length} keys` : "";
  });
}
for (const button of document.querySelectorAll("[data-copy]"))
  button.addEventListener("click", async () => {
    const text = document.getElementById(button.dataset.copy);
    try {
      await navigator.clipboard.writeText(text.textContent);
    } catch {
      getSelection().selectAllChildren(text);
      document.execCommand("copy");
    }
    button.textContent = "copied";
    setTimeout(() => { button.textContent = "copy"; }, 1500);
  });
