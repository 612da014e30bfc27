// The board's clock as this page knows it: CLOCK_MONOTONIC of the gateway's machine, in seconds.
//
// Each state says when it was made. The one that took the shortest way tells the difference of the two clocks best; it is
// held, and let go a little with time as clocks drift. So a state that was held up on its way is seen to be old.

const drift = 0.0005;  // seconds a second
const own = () => performance.now() / 1000;

let difference = null;
let learnt_at = 0;
let newest = -Infinity;

// Takes the time of a state that has just come.
export function learn(monotonic) {
  const sample = own() - monotonic;
  const has_begun_anew = monotonic < newest - 1;  // another boot, or another machine
  const held = difference === null || has_begun_anew ? Infinity : difference + drift * (own() - learnt_at);
  difference = Math.min(sample, held);
  learnt_at = own();
  newest = monotonic;
}

// Null until a state has come.
export function now() {
  return difference === null ? null : own() - difference;
}
