// Waiting for what must come, with a deadline that a slow machine may stretch.

const factor = Number(process.env.TEST_TIME_FACTOR || 1);

/** Milliseconds of patience on this machine. */
export function scaled(ms) {
  return ms * factor;
}

/**
 * Asks `look` until it gives something true, which is returned; throws with `what` otherwise.
 */
export async function until(what, look, patience_ms = 20000) {
  const deadline = Date.now() + scaled(patience_ms);
  let latest;
  for (;;) {
    latest = await look();
    if (latest) return latest;
    if (Date.now() > deadline) throw new Error(`did not come in time: ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}
