// Mouse, pen and finger on the picture.

const get = (id) => document.getElementById(id);

/**
 * Watches a canvas.
 * @param canvas the picture; shown at another size than it has pixels
 * @param does   {mode(), orbit(x, y), pan(x, y), dolly(share), hover(x, y), click(x, y), pick(rect)};
 *               x, y in pixels of the picture, orbit in radians
 */
export function watchPointer(canvas, does) {
  let from = null;
  const pixel = (event) => {
    const box = canvas.getBoundingClientRect();
    return [Math.floor(((event.clientX - box.left) * canvas.width) / box.width),
      Math.floor(((event.clientY - box.top) * canvas.height) / box.height)];
  };
  const rubber = get('rubber');
  const drawRubber = (event) => {
    const box = canvas.parentElement.getBoundingClientRect();
    rubber.hidden = false;
    rubber.style.left = `${Math.min(from.x, event.clientX) - box.left}px`;
    rubber.style.top = `${Math.min(from.y, event.clientY) - box.top}px`;
    rubber.style.width = `${Math.abs(event.clientX - from.x)}px`;
    rubber.style.height = `${Math.abs(event.clientY - from.y)}px`;
  };

  canvas.addEventListener('pointerdown', (event) => {
    canvas.setPointerCapture(event.pointerId);
    from = { x: event.clientX, y: event.clientY, lastX: event.clientX, lastY: event.clientY,
      pixel: pixel(event), isDrag: false, button: event.button };
  });
  canvas.addEventListener('pointermove', (event) => {
    if (!from) {
      does.hover(...pixel(event));
      return;
    }
    if (Math.hypot(event.clientX - from.x, event.clientY - from.y) > 3) from.isDrag = true;
    if (!from.isDrag) return;
    if (does.mode() === 'select') {
      drawRubber(event);
      return;
    }
    canvas.classList.add('moves');
    const box = canvas.getBoundingClientRect();
    const x = event.clientX - from.lastX, y = event.clientY - from.lastY;
    from.lastX = event.clientX;
    from.lastY = event.clientY;
    if (event.shiftKey || from.button === 1 || from.button === 2)
      does.pan((x * canvas.width) / box.width, (y * canvas.height) / box.height);
    else does.orbit((-x / box.width) * Math.PI * 2, (y / box.width) * Math.PI * 2);
  });
  const end = (event) => {
    if (!from) return;
    const { isDrag, pixel: start } = from;
    from = null;
    canvas.classList.remove('moves');
    rubber.hidden = true;
    if (event.type === 'pointercancel') return;
    if (does.mode() === 'select') does.pick([...start, ...pixel(event)]);
    else if (!isDrag) does.click(...pixel(event));
  };
  canvas.addEventListener('pointerup', end);
  canvas.addEventListener('pointercancel', end);
  canvas.addEventListener('contextmenu', (event) => event.preventDefault());
  canvas.addEventListener('wheel', (event) => {
    event.preventDefault();
    does.dolly(Math.exp(Math.max(-200, Math.min(200, event.deltaY)) * 0.0015));
  }, { passive: false });
}
