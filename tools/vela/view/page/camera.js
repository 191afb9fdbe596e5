// A camera that is moved by hand. Matrices are 16 numbers, column by column: right, up, back, place.

const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const scale = (a, s) => [a[0] * s, a[1] * s, a[2] * s];
const add = (a, b) => [a[0] + b[0], a[1] + b[1], a[2] + b[2]];
const cross = (a, b) => [
  a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
const unit = (a) => scale(a, 1 / Math.hypot(...a));

// v about a unit axis, by an angle in radians.
function turned(v, axis, angle) {
  const c = Math.cos(angle), s = Math.sin(angle);
  return add(add(scale(v, c), scale(cross(axis, v), s)), scale(axis, dot(axis, v) * (1 - c)));
}

export class HandCamera {
  /** Takes a view as the command describes it. It counts as not moved until it is. */
  settle(view) {
    const m = view.matrix;
    this.view = view;
    this.isMoved = false;
    this.zoom = 1;
    this.right = m.slice(0, 3);
    this.top = m.slice(4, 7);
    this.back = m.slice(8, 11);
    this.place = m.slice(12, 15);
    // What it turns around: the point on its axis that is level with the middle of the scene.
    const along = dot(add(this.place, scale(view.centre, -1)), this.back);
    const away = Math.hypot(...add(this.place, scale(view.centre, -1)));
    this.distance = along > 0 ? along : away > 0 ? away : 1;
  }

  get pivot() { return add(this.place, scale(this.back, -this.distance)); }

  // What a pixel is wide at the pivot.
  get unit() {
    const { lens, film, focalLength, width } = this.view;
    if (lens === 'orthographic') return (film[0] * this.zoom) / width;
    if (lens === 'perspective') return (this.distance * film[0] * this.zoom) / focalLength / width;
    return (2 * this.distance) / width;
  }

  /** Turns around the pivot, by angles in radians. */
  orbit(sideways, upwards) {
    const pivot = this.pivot, up = this.view.up;
    const tilt = Math.asin(Math.max(-1, Math.min(1, dot(this.back, up))));
    const limit = Math.PI / 2 - 0.01;
    const next = Math.max(-limit, Math.min(limit, tilt + upwards));
    // Past the limit only towards the horizon.
    const rise = Math.abs(tilt) > limit && Math.abs(next) >= Math.abs(tilt) ? 0 : next - tilt;
    let back = turned(this.back, this.right, -rise);
    let right = this.right;
    back = unit(turned(back, up, sideways));
    right = turned(right, up, sideways);
    this.back = back;
    this.right = unit(add(right, scale(back, -dot(right, back))));
    this.top = cross(this.back, this.right);
    this.place = add(pivot, scale(this.back, this.distance));
    this.isMoved = true;
  }

  /** Moves sideways, in pixels of the picture. */
  pan(x, y) {
    const step = add(scale(this.right, -x * this.unit), scale(this.top, y * this.unit));
    this.place = add(this.place, step);
    this.isMoved = true;
  }

  /** Goes to a share of its distance from the pivot. */
  dolly(share) {
    if (this.view.lens === 'orthographic') {
      this.zoom = Math.max(1e-6, Math.min(1e6, this.zoom * share));
    } else {
      const pivot = this.pivot;
      this.distance = Math.max(this.view.radius * 1e-5, this.distance * share);
      this.place = add(pivot, scale(this.back, this.distance));
    }
    this.isMoved = true;
  }

  /** Goes to where the whole scene is in the picture, looking as it does. */
  frame() {
    const { centre, radius, lens, film, focalLength, width, height } = this.view;
    const smaller = Math.min(1, height / width);
    if (lens === 'orthographic') {
      this.zoom = (2 * radius) / smaller / film[0];
      this.distance = Math.max(this.distance, 2 * radius);
    } else {
      const half = lens === 'perspective'
        ? Math.atan((0.5 * film[0] * this.zoom * smaller) / focalLength) : Math.PI / 4;
      this.distance = radius / Math.sin(half);
    }
    this.place = add(centre, scale(this.back, this.distance));
    this.isMoved = true;
  }

  /** What a request has to say of it. */
  get ask() {
    if (!this.isMoved) return {};
    const column = (v, w) => [v[0], v[1], v[2], w];
    return {
      pose: [...column(this.right, 0), ...column(this.top, 0), ...column(this.back, 0),
        ...column(this.place, 1)],
      zoom: this.zoom,
    };
  }
}
