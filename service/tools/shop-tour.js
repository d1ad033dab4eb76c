// The agent's tour of the demo shop, by pointer and keyboard only, the way a support agent would
// operate it from the console: scroll the product list, open a product, step its quantity, add it
// to the cart, go back, search and open the first match with Enter, open the settings, toggle a
// switch, drag a slider, pick a tab, and Tab from the search field to "Checkout" and press it with
// Space: the checkout screen's card number and balance the agent only ever sees masked.
// Points are the shop's window's (390 x 844), sent as fractions of it.
const WIDTH = 390;
const HEIGHT = 844;
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// What the shop prints as each step's result, in order ("app: ..." lines on its standard output).
export const expectedReports = [
  'open Wool socks',
  'quantity 2',
  'added 2 x Wool socks, cart 2',
  'search m',
  'search mu',
  'search mug',
  'open Blue mug',
  'notifications on',
  'text size 158',
  'theme Dark',
];

export async function operateShop(socket, { say = () => {}, settle = 1200 } = {}) {
  let pointer = 0;
  // A mouse pointer, its presses counted as the console counts them.
  const touch = (state, [x, y], id) =>
    socket.emit('touch', {
      type: 'Touch', id, state, x: x / WIDTH, y: y / HEIGHT, pointerType: 'mouse', ...(state === 'touchstart' ? { clicks: 1 } : {}),
    });
  const tap = async (point) => {
    const id = `finger-${(pointer += 1)}`;
    touch('touchstart', point, id);
    await pause(50);
    touch('touchend', point, id);
    await pause(settle);
  };
  // Moves 16 ms apart; the pointer rests before it lets go, so that a list stops where it was
  // dragged to instead of flicking on.
  const drag = async (from, to, { hold = 0, steps = 10 } = {}) => {
    const id = `finger-${(pointer += 1)}`;
    touch('touchstart', from, id);
    await pause(hold);
    for (let step = 1; step <= steps; step += 1) {
      touch('touchmove', [from[0] + ((to[0] - from[0]) * step) / steps, from[1] + ((to[1] - from[1]) * step) / steps], id);
      await pause(16);
    }
    await pause(300);
    touch('touchend', to, id);
    await pause(settle);
  };
  const press = (key, code = key) => socket.emit('keypress', { type: 'KeyPress', key, code, state: 'keydown' });
  const type = (text) => {
    for (const key of text) press(key, `Key${key.toUpperCase()}`);
  };
  const back = [45, 28];

  // The list follows the drag once Qt takes it for one, by 240 of the 300 points dragged, which
  // brings the seventh row under y = 300.
  say('scrolls the product list and opens the row under its pointer');
  await drag([195, 700], [195, 400]);
  await tap([195, 300]);
  say('steps the quantity up and adds the product to the cart');
  await tap([165, 296]);
  await tap([195, 376]);
  await tap(back);
  say('searches for "mug" and opens the first match with Enter');
  await tap([195, 90]);
  type('mug');
  press('Enter');
  await pause(settle);
  await tap(back);
  say('opens the settings, turns notifications on, drags the text size, picks the dark theme');
  await tap([345, 28]);
  await tap([60, 92]);
  await drag([60, 172], [360, 172], { hold: 350 });
  await tap([195, 218]);  // the tabs are as tall as their text, at the top of the bar
  await tap(back);
  say('moves from the search field to "Checkout" with Tab and presses it with Space: the card number and balance stay masked');
  await tap([195, 90]);
  press('Tab');
  press(' ', 'Space');
  await pause(settle);
}
