// @ts-check
// The menu of faults.
import { byId, make, setText } from './dom.js';
import { faults } from './faults.js';
import { Lane } from './orders.js';

export function startFaults() {
  const lane = new Lane();
  const choice = byId('fault', HTMLSelectElement);
  const amount = byId('fault-amount', HTMLInputElement);
  const undo = byId('fault-undo', HTMLButtonElement);
  for (const group of new Set(faults.map((fault) => fault.group))) {
    const entries = faults
      .map((fault, index) => ({ fault, index }))
      .filter(({ fault }) => fault.group === group)
      .map(({ fault, index }) => make('option', { value: index }, fault.title));
    choice.append(make('optgroup', { label: group }, ...entries));
  }
  const chosen = () => faults[Number(choice.value)];

  const show = () => {
    const fault = chosen();
    setText(byId('fault-sentence', HTMLElement), fault.life);
    byId('fault-amount-box', HTMLElement).hidden = fault.amount === undefined;
    undo.hidden = fault.undo === undefined;
    if (fault.amount === undefined) return;
    setText(byId('fault-amount-label', HTMLElement), fault.amount.label);
    amount.min = String(fault.amount.least);
    amount.max = String(fault.amount.most);
    amount.value = String(fault.amount.value);
  };

  choice.addEventListener('change', show);
  byId('fault-do', HTMLButtonElement).addEventListener('click', () => {
    const { order, amount: number } = chosen();
    if (number !== undefined && !amount.reportValidity()) return;
    lane.order(order[0], number === undefined ? order[1] : { ...order[1], [number.field]: amount.valueAsNumber });
  });
  undo.addEventListener('click', () => {
    const order = chosen().undo;
    if (order !== undefined) lane.order(...order);
  });
  show();
}
