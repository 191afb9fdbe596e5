// Questions to the command. Its address, token included, is that of the page.

/** A question that was refused, with the command's own words. */
export class Refused extends Error {
  constructor(status, text) {
    super(text.trim());
    this.status = status;
  }
}

const listeners = { lost: [], found: [] };
let isLost = false;

/** Calls back when the command does not answer any more, and when it does again. */
export function onConnection(lost, found) {
  listeners.lost.push(lost);
  listeners.found.push(found);
}

/** The answer to a question as a Response. Throws Refused, or TypeError when there is none. */
export async function ask(path, body = {}) {
  let response;
  try {
    response = await fetch(path, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
    });
  } catch (error) {
    if (!isLost) listeners.lost.forEach((call) => call());
    isLost = true;
    throw error;
  }
  if (isLost) {
    isLost = false;
    listeners.found.forEach((call) => call());
  }
  if (!response.ok) throw new Refused(response.status, await response.text());
  return response;
}

export async function askJson(path, body = {}) {
  return (await ask(path, body)).json();
}

/** Offers bytes as a file. */
export function download(blob, name) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
