// The page: what it shows, and what the parts of it do to that.
import { ask, askJson, download, onConnection } from './api.js';
import { HandCamera } from './camera.js';
import { Picture } from './picture.js';
import { watchKeys } from './keys.js';
import { watchPointer } from './pointer.js';
import { Selection } from './selection.js';
import { hoverText, short, tell } from './story.js';
import { Tree } from './tree.js';

const get = (id) => document.getElementById(id);

const state = { layer: 'rgba', time: null, hidden: [], only: [], mode: 'look', near: null, far: null };
const camera = new HandCamera();
let scene = null;
// Which of the questions where the camera stands is the last one, and which was answered.
let asked = 0, settled = 0;
let generation = 0;

// ---- What is asked for

// What of the scene shows, but from where.
function sceneAsk() {
  const purposes = [...document.querySelectorAll('#purposes input[value]')]
    .filter((box) => box.checked && box.id === '').map((box) => box.value);
  return {
    time: state.time, purposes, invisible: get('invisible').checked,
    exclude: [...scene.defaults.exclude, ...state.hidden],
    mask: state.only.length > 0 ? state.only : scene.defaults.mask,
  };
}

function stillAsk() {
  const body = { ...sceneAsk(), camera: get('camera').value, lens: get('lens').value,
    samples: Number(get('samples').value) };
  const width = get('width').value;
  if (width) body.width = Number(width);
  else if (scene.defaults.width) body.width = scene.defaults.width;
  if (!width && scene.defaults.height) body.height = scene.defaults.height;
  return body;
}

// The size is told too: that of a moved camera without a film would be another one.
const viewAsk = () => ({ ...stillAsk(), ...camera.ask,
  ...(camera.isMoved ? { width: camera.view.width, height: camera.view.height } : {}) });

// Nothing while it is not known where the camera stands.
const wanted = (other) => () => camera.view && settled === asked && ({
  view: other ? { ...viewAsk(), ...other.view() } : viewAsk(),
  layer: other ? other.layer() : state.layer,
  near: state.near, far: state.far,
  width: camera.view.width, height: camera.view.height,
});

const picture = new Picture(get('picture'), wanted(null), report);
const other = new Picture(get('other'), wanted({
  layer: () => get('other-layer').value,
  view: () => (get('other-time').value === '' ? {} : { time: Number(get('other-time').value) }),
}), () => {});

// What is on the canvas is not what is asked for any more.
function stale() {
  picture.stop();
  get('png').disabled = true;
}

function change() {
  if (!camera.view) return;
  stale();
  picture.change();
  if (get('compare').checked) other.change();
}

// Asks where the camera stands now that it, its lens or the scene is another one.
async function settle() {
  stale();
  const number = ++asked;
  try {
    const view = await askJson('view', stillAsk());
    if (number !== asked) return;
    settled = number;
    camera.settle(view);
    layOut();
    change();
  } catch (error) {
    fail(error);
  }
}

// ---- What is said

function notice(text, label = '', act = null) {
  get('notice').hidden = text === '';
  get('notice-text').textContent = text;
  get('notice-do').hidden = label === '';
  get('notice-do').textContent = label;
  get('notice-do').onclick = act;
}

function fail(error) {
  if (error instanceof TypeError) return;
  notice(error.message, 'Close', () => notice(''));
}

const WORDS = { draft: 'draft', band: 'rendering', whole: 'the whole picture', failed: 'failed' };

function report(told) {
  get('progress').textContent = told.state === 'band'
    ? `rendering, ${Math.round(told.share * 100)} %` : WORDS[told.state];
  if (told.state === 'failed') return fail(new Error(told.error));
  const seconds = told.microseconds / 1e6;
  const rows = [['picture', `${told.width} x ${told.height}`],
    ['state', WORDS[told.state]],
    ['time', `${seconds.toFixed(3)} s`],
    ['rays', told.rays.toLocaleString('en')],
    ['rays a second', Math.round(told.rays / Math.max(seconds, 1e-6)).toLocaleString('en')],
    ['drafts a second', String(picture.drafts.length)],
    ['meshes', camera.view.meshes.toLocaleString('en')],
    ['lights', String(camera.view.lights)]];
  get('statistics').replaceChildren(...rows.flatMap(([name, value]) => {
    const [dt, dd] = [document.createElement('dt'), document.createElement('dd')];
    dt.textContent = name;
    dd.textContent = value;
    return [dt, dd];
  }));
  if (told.near !== undefined && told.state === 'whole' && state.near === null) {
    get('near').placeholder = short(told.near);
    get('far').placeholder = short(told.far);
  }
  get('png').disabled = told.state !== 'whole';
}

// The picture as large as the room for it allows, in its own shape.
function layOut() {
  if (!camera.view) return;
  const box = get('frame-box').getBoundingClientRect();
  const { width, height } = camera.view;
  const share = Math.min(box.width / width, box.height / height);
  for (const canvas of [get('picture'), get('other')]) {
    canvas.style.width = `${width * share}px`;
    canvas.style.height = `${height * share}px`;
    canvas.style.left = `${(box.width - width * share) / 2}px`;
    canvas.style.top = `${(box.height - height * share) / 2}px`;
  }
}

// ---- Parts of the page

function setLayer(name) {
  state.layer = name;
  for (const button of get('layers').children)
    button.setAttribute('aria-pressed', String(button.dataset.layer === name));
  get('depth-range').hidden = name !== 'depth';
  change();
}

function setMode(mode) {
  state.mode = mode;
  get('tool-look').setAttribute('aria-pressed', String(mode === 'look'));
  get('tool-select').setAttribute('aria-pressed', String(mode === 'select'));
  get('picture').classList.toggle('selects', mode === 'select');
  if (mode === 'select') get('selection-part').open = true;
}

async function story(x, y) {
  const body = { ...viewAsk(), rect: [x, y, x, y] };
  try {
    const [pick, why] = await Promise.all([askJson('pick', body), askJson('explain', body)]);
    tell(get('story'), x, y, pick, why);
  } catch (error) {
    fail(error);
  }
}

let hoverAt = null, isHovering = false;
async function hover(x, y) {
  hoverAt = [x, y];
  if (isHovering) return;
  isHovering = true;
  while (hoverAt) {
    const [px, py] = hoverAt;
    hoverAt = null;
    try {
      get('hover').textContent = hoverText(
        await askJson('pick', { ...viewAsk(), rect: [px, py, px, py] }));
    } catch (error) {
      fail(error);
    }
  }
  isHovering = false;
}

const tree = new Tree(get('tree'), get('search'), () => {
  get('hide').disabled = get('isolate').disabled = false;
});
const selection = new Selection(viewAsk, fail);

function setShown(hidden, only) {
  state.hidden = hidden;
  state.only = only;
  tree.setHidden(hidden);
  get('show-all').disabled = hidden.length === 0 && only.length === 0;
  change();
}

const hide = () => tree.path && setShown([...state.hidden, tree.path], state.only);
const isolate = () => tree.path && setShown(state.hidden, [tree.path]);

function setTime(time) {
  state.time = time;
  get('time-text').textContent = time === null ? 'default' : short(time);
  if (time !== null) get('time').value = time;
  if (camera.isMoved) change();
  else settle();
}

let playing = null;
function play() {
  get('play').setAttribute('aria-pressed', String(!playing));
  if (playing) {
    clearInterval(playing);
    playing = null;
    return;
  }
  playing = setInterval(() => {
    if (picture.isDrafting) return;
    const [first, last] = scene.range;
    const next = (state.time ?? first - 1) + 1;
    setTime(next > last ? first : next);
  }, 1000 / scene.timeCodesPerSecond);
}

function step(by) {
  if (!scene.range) return;
  const [first, last] = scene.range;
  setTime(Math.max(first, Math.min(last, (state.time ?? first) + by)));
}

async function saveExr() {
  get('exr').disabled = true;
  get('progress').textContent = 'rendering the EXR';
  try {
    const response = await ask('exr', { ...viewAsk(), client: picture.client });
    download(await response.blob(), `${scene.file.replace(/\.[^.]*$/, '')}.exr`);
    get('progress').textContent = 'the EXR is made';
  } catch (error) {
    fail(error);
  }
  get('exr').disabled = false;
}

function options(id, rows, chosen) {
  get(id).replaceChildren(...rows.map(([value, text]) => new Option(text, value)));
  get(id).value = chosen;
}

function setUp() {
  document.title = `${scene.file} - Vela`;
  get('title').textContent = scene.file;
  const { defaults } = scene;
  const cameras = scene.cameras.map((path) => [path, path]);
  options('camera', [['', 'first of the scene'], ...cameras], defaults.camera);
  get('lens').value = defaults.lens;
  const own = defaults.width || 1280;
  options('width', [['', `${own}`], ...[320, 640, 960, 1280, 1920, 2560].filter((w) => w !== own)
    .map((w) => [w, w])], '');
  options('samples', [...new Set([1, 4, 9, 16, 25, 64, 256, defaults.samples])]
    .sort((a, b) => a - b).map((n) => [n, n]), defaults.samples);
  get('layers').replaceChildren(...scene.layers.map(({ name, help }, i) => {
    const button = document.createElement('button');
    button.dataset.layer = name;
    button.textContent = name;
    button.title = i < 9 ? `${help} (${i + 1})` : help;
    button.addEventListener('click', () => setLayer(name));
    return button;
  }));
  options('other-layer', scene.layers.map(({ name }) => [name, name]), 'N');
  for (const box of document.querySelectorAll('#purposes input[value]'))
    box.checked = defaults.purposes.includes(box.value);
  get('invisible').checked = defaults.invisible;
  state.time = defaults.time;
  get('timeline').hidden = get('other-time-label').hidden = !scene.range;
  if (scene.range) {
    [get('time').min, get('time').max] = scene.range;
    get('time').step = 1;
    get('time').value = defaults.time ?? scene.range[0];
    get('time-text').textContent = defaults.time === null ? 'default' : short(defaults.time);
  }
  setLayer(state.layer);
}

async function open() {
  scene = await askJson('scene');
  generation = scene.generation;
  setUp();
  await settle();
  await tree.open();
}

// The scene on disk, and the command, may be others by now.
async function watch() {
  try {
    const status = await askJson('status');
    if (status.generation !== generation) await open();
    else if (status.changed)
      notice('The scene has changed on disk.', 'Reload', async () => {
        try {
          await ask('reload');
          notice('');
          await open();
        } catch (error) {
          fail(error);
        }
      });
  } catch {
    // What is lost is said already.
  }
  setTimeout(watch, 2000);
}

// ---- What is done

const on = (id, event, act) => get(id).addEventListener(event, act);
on('tool-look', 'click', () => setMode('look'));
on('tool-select', 'click', () => setMode('select'));
on('frame', 'click', frame);
on('home', 'click', settle);
on('png', 'click', () => picture.whole &&
  download(picture.whole, `${scene.file.replace(/\.[^.]*$/, '')}.png`));
on('exr', 'click', saveExr);
on('keys', 'click', () => get('help').showModal());
for (const id of ['camera', 'lens', 'width']) on(id, 'change', settle);
for (const id of ['samples', 'other-layer', 'other-time', 'purposes']) on(id, 'change', change);
for (const id of ['near', 'far'])
  on(id, 'change', () => {
    const read = (field) => (get(field).value === '' ? Number(get(field).placeholder)
      : Number(get(field).value));
    state.near = read('near');
    state.far = read('far');
    change();
  });
on('range-auto', 'click', () => {
  get('near').value = get('far').value = '';
  state.near = state.far = null;
  change();
});
on('hide', 'click', hide);
on('isolate', 'click', isolate);
on('show-all', 'click', () => setShown([], []));
on('time', 'input', () => setTime(Number(get('time').value)));
on('play', 'click', play);
on('compare', 'change', () => {
  const shows = get('compare').checked;
  get('wiper').hidden = !shows;
  get('other').style.display = shows ? 'block' : 'none';
  wipe();
  if (shows) other.change();
});
on('wiper', 'input', wipe);

function wipe() {
  get('other').style.clipPath = `inset(0 0 0 ${get('wiper').value / 10}%)`;
}

function frame() {
  camera.frame();
  change();
}

const does = {
  mode: () => state.mode,
  orbit: (x, y) => { camera.orbit(x, y); change(); },
  pan: (x, y) => { camera.pan(x, y); change(); },
  dolly: (share) => { camera.dolly(share); change(); },
  hover, click: story, pick: (rect) => selection.pick(rect),
};
watchPointer(get('picture'), does);
watchKeys({ ...does, frame, home: settle, setMode, hide, isolate, step,
  play: () => scene?.range && play(),
  layer: (i) => scene.layers[i] && setLayer(scene.layers[i].name),
  story: () => story(camera.view.width >> 1, camera.view.height >> 1) });
new ResizeObserver(layOut).observe(get('frame-box'));
onConnection(
  () => notice('The connection to vela view is lost. It is tried again; start it anew if it has ended.'),
  () => { notice(''); change(); });

open().catch(fail).finally(watch);
