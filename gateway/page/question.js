// Questions that must be answered before something is done. None of them blocks what is live behind it.

const dialog = document.getElementById('ask');
const part = (name) => document.getElementById(`ask-${name}`);

// True when the answer was yes. Escape and the other button are no.
export function question({ title, text, yes, is_dangerous = true }) {
  part('title').textContent = title;
  part('text').textContent = text;
  part('yes').textContent = yes;
  part('yes').classList.toggle('danger', is_dangerous);
  dialog.returnValue = 'no';
  dialog.showModal();
  part('no').focus();
  return new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'yes'), { once: true });
  });
}

// Leaves the question that stands, as if it was answered with no.
export function withdraw() {
  if (dialog.open) {
    dialog.close('no');
  }
}
