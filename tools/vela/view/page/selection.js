// What is selected: rectangles add to it, and it goes to and comes from files.
import { askJson, download } from './api.js';

const get = (id) => document.getElementById(id);

export class Selection {
  /**
   * @param view   gives what a request says of the view
   * @param failed is called with an error
   */
  constructor(view, failed) {
    this.view = view;
    this.failed = failed;
    this.text = '';
    get('sel-save').addEventListener('click', () =>
      download(new Blob([this.text], { type: 'text/plain' }), 'selection.sel'));
    get('sel-clear').addEventListener('click', () => this.show('', { objects: [] }));
    get('sel-load').addEventListener('click', () => get('sel-file').click());
    get('sel-file').addEventListener('change', async () => {
      const [file] = get('sel-file').files;
      get('sel-file').value = '';
      // A rectangle outside of the picture picks nothing, and says what the file holds.
      if (file) await this.ask({ rect: [-1, -1, -1, -1], selection: await file.text() });
    });
  }

  /** Selects what a rectangle of pixels shows. */
  pick(rect) {
    return this.ask({ rect, through: get('through').checked, parts: get('parts').value,
      selection: get('add').checked ? this.text : '' });
  }

  async ask(more) {
    try {
      const answer = await askJson('select', { ...this.view(), ...more });
      this.show(answer.selection, answer.report);
    } catch (error) {
      this.failed(error);
    }
  }

  show(text, report) {
    const { objects } = report;
    this.text = objects.length > 0 ? text : '';
    get('sel-save').disabled = get('sel-clear').disabled = objects.length === 0;
    const list = document.createElement('dl');
    for (const object of objects.slice(0, 200)) {
      const name = document.createElement('dt');
      const what = document.createElement('dd');
      name.textContent = object.path;
      const count = (runs) => runs.reduce((sum, run) => sum + run.last - run.first + 1, 0);
      what.textContent = [object.selected ? 'whole' : '',
        object.faces?.length ? `${count(object.faces)} faces` : '',
        object.vertices?.length ? `${count(object.vertices)} vertices` : '']
        .filter(Boolean).join(', ');
      list.append(name, what);
    }
    const head = document.createElement('p');
    head.textContent = objects.length === 0 ? 'Nothing is selected.' : `${objects.length} prims`;
    get('selected').replaceChildren(head, list);
    get('selection-part').open = true;
  }
}
