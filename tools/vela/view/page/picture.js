// One picture of the page: drafts while something changes, then the real one, band by band.
import { ask, Refused } from './api.js';

// Milliseconds that a draft may take, so that more than 15 a second come; of a band about.
const DRAFT = 45, BAND = 350;
// Without a change for so long the real picture begins.
const REST = 120;

export class Picture {
  /**
   * @param canvas  what is drawn on
   * @param wanted  gives what to show: {view, layer, near, far, width, height}; null for nothing
   * @param report  is called with {state, share, microseconds, rays, near, far, error}
   */
  constructor(canvas, wanted, report) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d');
    this.wanted = wanted;
    this.report = report;
    this.client = crypto.getRandomValues(new Uint32Array(2)).join('-');
    this.number = 0;
    this.scale = 0.25;
    this.isDrafting = false;
    this.whole = null;
    this.drafts = [];  // when the last ones came
  }

  /** What is under way is given up. */
  stop() {
    this.number += 1;
    this.whole = null;
    clearTimeout(this.timer);
    document.body.dataset.state = 'draft';
  }

  /** Something has changed: another picture is made. */
  change() {
    this.stop();
    if (!this.isDrafting) this.draft();
  }

  body(wanted, more) {
    const { view, layer, near, far } = wanted;
    return { ...view, layer, near, far, client: this.client, number: this.number, ...more };
  }

  async draw(response, width, height, x, y, w, h) {
    const blob = await response.blob();
    const image = await createImageBitmap(blob);
    if (this.canvas.width !== width || this.canvas.height !== height) {
      this.canvas.width = width;
      this.canvas.height = height;
    }
    this.context.drawImage(image, x, y, w, h ?? image.height);
    image.close();
    return blob;
  }

  async draft() {
    const wanted = this.wanted();
    if (!wanted) return;
    this.isDrafting = true;
    const number = this.number;
    const width = Math.max(16, Math.round(wanted.width * this.scale));
    const height = Math.max(1, Math.round((width * wanted.height) / wanted.width));
    const start = performance.now();
    try {
      const response = await ask('picture', this.body(wanted, { draft: true, width, height }));
      await this.draw(response, wanted.width, wanted.height, 0, 0, wanted.width, wanted.height);
      const took = performance.now() - start;
      // By pixels, and never more than twice or half as wide at once.
      const factor = Math.sqrt(DRAFT / took);
      this.scale = Math.min(1, Math.max(0.03, this.scale * Math.max(0.5, Math.min(1.5, factor))));
      this.drafts = [...this.drafts.filter((t) => t > start - 1000), performance.now()];
      this.report({ state: 'draft', share: 0, took, width, height, ...numbers(response) });
    } catch (error) {
      if (!(error instanceof Refused && error.status === 409)) this.fail(error, number);
      else if (number === this.number) setTimeout(() => this.change(), REST);
    }
    this.isDrafting = false;
    if (number !== this.number) this.draft();
    else if (this.failed !== number) this.timer = setTimeout(() => this.finish(), REST);
  }

  // The real picture, unless something changes.
  async finish() {
    const wanted = this.wanted();
    const number = this.number;
    if (!wanted) return;
    let y0 = 0, rows = 32, microseconds = 0, rays = 0;
    while (number === this.number) {
      const y1 = Math.min(wanted.height, y0 + rows);
      const start = performance.now();
      let response;
      try {
        response = await ask('picture', this.body(wanted, { y0, y1 }));
      } catch (error) {
        if (number !== this.number) return;
        if (error instanceof Refused && error.status === 409) return this.change();
        return this.fail(error, number);
      }
      if (number !== this.number) return;
      const told = numbers(response);
      microseconds += told.microseconds;
      rays += told.rays;
      const at = Number(response.headers.get('Vela-Row'));
      const blob = await this.draw(response, wanted.width, wanted.height, 0, at, wanted.width);
      if (number !== this.number) return;
      const isWhole = y1 >= wanted.height;
      if (isWhole) {
        this.whole = blob;
        document.body.dataset.state = 'whole';
      }
      this.report({ ...told, state: isWhole ? 'whole' : 'band', share: y1 / wanted.height,
        microseconds, rays, width: wanted.width, height: wanted.height });
      if (isWhole) return;
      const took = performance.now() - start;
      rows = Math.max(32, Math.min(1024, 32 * Math.round((rows * BAND) / Math.max(took, 1) / 32)));
      y0 = y1;
    }
  }

  fail(error, number) {
    this.failed = number;
    this.report({ state: 'failed', error: error.message });
  }
}

function numbers(response) {
  const read = (name) => {
    const text = response.headers.get(name);
    return text === null ? undefined : Number(text);
  };
  return { microseconds: read('Vela-Microseconds'), rays: read('Vela-Rays'),
    near: read('Vela-Near'), far: read('Vela-Far') };
}
