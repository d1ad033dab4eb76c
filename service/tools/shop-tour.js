// The agent's tour of the demo shop, by touch and keyboard only, the way a support agent would
// operate it from the console: scroll the product list, open a product, step its quantity, add it
// to the cart, go back, search, open the settings, toggle a switch, drag a slider, pick a tab, and
// end on the checkout screen, whose card number and balance the agent only ever sees masked.
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
  'notifications on',
  'text size 157',
  'theme Dark',
];

export async function operateShop(socket, { say = () => {}, settle = 1200 } = {}) {
  let pointer = 0;
  const touch = (state, [x, y], id) => socket.emit('touch', { type: 'Touch', id, state, x: x / WIDTH, y: y / HEIGHT });
  // Down and up within the device's 250 ms hold: a tap.
  const tap = async (point) => {
    const id = `finger-${(pointer += 1)}`;
    touch('touchstart', point, id);
    await pause(50);
    touch('touchend', point, id);
    await pause(settle);
  };
  // Moves 16 ms apart; with `hold` the press begins (on the control under it) before the first move.
  const drag = async (from, to, { hold = 0, steps = 10 } = {}) => {
    const id = `finger-${(pointer += 1)}`;
    touch('touchstart', from, id);
    await pause(hold);
    for (let step = 1; step <= steps; step += 1) {
      touch('touchmove', [from[0] + ((to[0] - from[0]) * step) / steps, from[1] + ((to[1] - from[1]) * step) / steps], id);
      await pause(16);
    }
    touch('touchend', to, id);
    await pause(settle);
  };
  const type = (text) => {
    for (const key of text) socket.emit('keypress', { type: 'KeyPress', key, code: `Key${key.toUpperCase()}`, state: 'keydown' });
  };
  const back = [45, 28];

  say('scrolls the product list by 300 points and opens the row under its finger');
  await drag([195, 700], [195, 400]);
  await tap([195, 220]);
  say('steps the quantity up and adds the product to the cart');
  await tap([150, 312]);
  await tap([195, 376]);
  await tap(back);
  say('searches for "mug"');
  await tap([195, 90]);
  type('mug');
  await pause(settle);
  say('opens the settings, turns notifications on, drags the text size, picks the dark theme');
  await tap([345, 28]);
  await tap([60, 92]);
  await drag([60, 172], [360, 172], { hold: 350 });
  await tap([195, 232]);
  await tap(back);
  say('opens the checkout screen: the card number and balance stay masked');
  await tap([101, 814]);
}
