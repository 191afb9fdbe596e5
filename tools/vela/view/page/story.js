// What a ray meets, in words.

export const short = (number) => Number(Number(number).toPrecision(6)).toString();
export const place = (point) => point.map(short).join(' ');

function line(tag, text, name) {
  const element = document.createElement(tag);
  element.textContent = text;
  if (name) element.className = name;
  return element;
}

/** One line about a pixel. */
export function hoverText(pick) {
  if (!pick.hit) return 'nothing there';
  return `${pick.prim}  face ${pick.face}  distance ${short(pick.distance)}  ` +
    `position ${place(pick.position)}`;
}

// As vela explain says it.
function outcome(told) {
  const at = told.distance === undefined || told.distance === null
    ? '' : ` at ${short(told.distance)}, face ${told.face}`;
  return `${told.verdict}${at}`;
}

/** Fills an element with the story of a ray: what vela pick and vela explain say. */
export function tell(element, x, y, pick, why) {
  const parts = [line('p', `Pixel ${x}, ${y}`)];
  if (pick.hit) {
    parts.push(line('p', pick.prim, 'met'));
    const facts = document.createElement('dl');
    const rows = [['face', pick.face], ['distance', short(pick.distance)],
      ['position', place(pick.position)], ['normal', place(pick.normal)]];
    if (pick.material) rows.push(['material', pick.material]);
    for (const [name, value] of rows) facts.append(line('dt', name), line('dd', value));
    parts.push(facts);
  } else {
    parts.push(line('p', 'Nothing there.'));
  }
  for (const item of why.prims ?? []) {
    parts.push(line('h3', `${item.prim} (${item.type})`));
    const facts = document.createElement('dl');
    if (item.hiddenBy) facts.append(line('dt', 'hidden by'), line('dd', item.hiddenBy));
    for (const [name, key] of [['tracer', 'tracer'], ['hit detector', 'hitDetector']])
      if (item[key]) facts.append(line('dt', name), line('dd', outcome(item[key])));
    parts.push(facts);
  }
  if (why.culled > 0)
    parts.push(line('p', `${why.culled} more: the ray does not enter their boxes.`));
  element.replaceChildren(...parts);
}
