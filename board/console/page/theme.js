// @ts-check
// Dark or light: as the system has it unless chosen here.
import { byId } from './dom.js';

const key = 'bench-theme';

/** @param {string} theme */
function apply(theme) {
  if (theme === 'dark' || theme === 'light') document.documentElement.dataset.theme = theme;
  else delete document.documentElement.dataset.theme;
}

export function startTheme() {
  const choice = byId('theme', HTMLSelectElement);
  const kept = localStorage.getItem(key);
  if (kept === 'dark' || kept === 'light') choice.value = kept;
  apply(choice.value);
  choice.addEventListener('change', () => {
    apply(choice.value);
    localStorage.setItem(key, choice.value);
  });
}
