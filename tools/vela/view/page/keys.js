// The page by keyboard.

const get = (id) => document.getElementById(id);

// To the next choice of a list, round and round.
function next(id) {
  const list = get(id);
  list.selectedIndex = (list.selectedIndex + 1) % list.options.length;
  list.dispatchEvent(new Event('change'));
}

/** @param does what the keys do: see main.js */
export function watchKeys(does) {
  const turn = Math.PI / 36, step = 24;
  const arrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
  const keys = {
    '+': () => does.dolly(0.9), '=': () => does.dolly(0.9), '-': () => does.dolly(1 / 0.9),
    f: does.frame, Home: does.home, v: () => does.setMode('look'), s: () => does.setMode('select'),
    h: does.hide, i: does.isolate, c: () => next('camera'), l: () => next('lens'),
    ' ': does.play, ',': () => does.step(-1), '.': () => does.step(1),
    '/': () => get('search').focus(), '?': () => get('help').showModal(), Enter: does.story,
  };
  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || get('help').open) return;
    const on = event.target;
    if (on.matches('input:not([type=checkbox]), select, textarea')) return;
    // Buttons and boxes keep the keys that press them.
    if (on.matches('button, summary, input') && (event.key === ' ' || event.key === 'Enter')) return;
    const arrow = arrows[event.key];
    let act = keys[event.key] ?? keys[event.key.toLowerCase()];
    if (arrow && event.shiftKey) act = () => does.pan(-arrow[0] * step, -arrow[1] * step);
    else if (arrow) act = () => does.orbit(arrow[0] * turn, -arrow[1] * turn);
    else if (/^[1-9]$/.test(event.key)) act = () => does.layer(Number(event.key) - 1);
    if (!act) return;
    event.preventDefault();
    act();
  });
}
