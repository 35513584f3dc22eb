#!/usr/bin/env python3
"""OpenCV's CamShift on the frames bench_color_tracker_quality --pipe writes:
the peer figures beside ColorTracker's, on the same footage and with the
same scoring (see color_tracker_quality_bench.cpp).

CamShift is set up the usual way, given its best start: a hue histogram of
the disc's inner pixels in the first frame (within 0.8 radius, saturation >=
60, value >= 32; background in the box would pull it off), the back-projection
masked the same way, termination after 10 iterations or a 1-pixel move, and
the search window reset to the whole frame whenever it collapses or holds
little of the object's colour (mean back-projection under 20% of full), the
usual way to let CamShift find an object again after losing it (without it,
CamShift stays on the background once the object has left the frame)."""
import sys

import cv2
import numpy as np


def main():
    stream = sys.stdin.buffer
    w, h, n = (int(v) for v in stream.readline().split())
    radius = 40
    criteria = (cv2.TERM_CRITERIA_EPS | cv2.TERM_CRITERIA_COUNT, 10, 1)
    errors, settling, reacquire = [], [], []
    waiting, was_hidden, hist, window = -1, False, None, None
    for _ in range(n):
        tx, ty, visible, shown = np.frombuffer(stream.read(32), dtype=np.float64)
        raw = stream.read(w * h * 4)
        if len(raw) < w * h * 4:
            sys.exit("color_tracker_camshift: the frame stream ended early")
        bgr = cv2.cvtColor(np.frombuffer(raw, dtype=np.uint8).reshape(h, w, 4), cv2.COLOR_BGRA2BGR)
        hsv = cv2.cvtColor(bgr, cv2.COLOR_BGR2HSV)
        mask = cv2.inRange(hsv, (0, 60, 32), (180, 255, 255))
        if hist is None:
            x0, y0 = int(tx - radius), int(ty - radius)
            window = (x0, y0, 2 * radius + 1, 2 * radius + 1)
            roi = (slice(y0, y0 + 2 * radius + 1), slice(x0, x0 + 2 * radius + 1))
            inner = np.zeros((h, w), np.uint8)
            cv2.circle(inner, (int(round(tx)), int(round(ty))), int(0.8 * radius), 255, -1)
            hist = cv2.calcHist([hsv[roi]], [0], (mask & inner)[roi], [180], [0, 180])
            cv2.normalize(hist, hist, 0, 255, cv2.NORM_MINMAX)
        back = cv2.calcBackProject([hsv], [0], hist, [0, 180], 1)
        back &= mask
        box, window = cv2.CamShift(back, window, criteria)
        x, y, ww, wh = window
        if ww <= 0 or wh <= 0 or back[y:y + wh, x:x + ww].mean() < 0.2 * 255:
            window = (0, 0, w, h)
        cx, cy = box[0]
        # A hidden stretch ends at the first fully visible frame after it;
        # frames where the disc is only partly shown are not scored.
        if shown < 0.5:
            was_hidden = True
        if visible < 0.5:
            continue
        err = float(np.hypot(cx - tx, cy - ty))
        if was_hidden:
            waiting, was_hidden = 0, False
        if waiting >= 0:
            if err < 2.0:
                reacquire.append(waiting)
                waiting = -1
            else:
                settling.append(err)
                waiting += 1
                continue
        errors.append(err)
    e = np.sort(np.array(errors))
    print(f"{'CamShift (OpenCV ' + cv2.__version__ + ')':22s} frames {len(e)}  mean {e.mean():.2f} px  "
          f"median {e[len(e) // 2]:.2f} px  worst {e[-1]:.2f} px", file=sys.stderr)
    never = " (one never)" if waiting >= 0 else ""
    print(f"{'':22s} re-acquired after: {' '.join(str(v) for v in reacquire)} frames{never}; "
          f"errors before re-acquiring: {' '.join(f'{v:.1f}' for v in settling)}", file=sys.stderr)


if __name__ == "__main__":
    main()
