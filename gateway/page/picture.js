// The live picture: fragmented MP4 into a video element through Media Source Extensions, held at the newest picture.

import * as clock from './clock.js';
import { follow } from './gateway.js';
import { Cutter, join } from './mp4.js';

const Source = globalThis.ManagedMediaSource ?? globalThis.MediaSource;

// Seconds of media time.
const target = 0.04;       // how far behind the newest picture the one that is shown is to be
const too_far = 0.8;       // from here on it jumps, before that it plays faster
const hopeless = 4;        // what comes is so old that a new stream is quicker
const kept = 4;            // of what was shown
const largest_queue = 120; // pictures that wait for the decoder

export class Picture {
  #video;
  #say;
  #follower;
  #source = null;
  #buffer = null;
  #queue = [];
  #codec = '';
  #newest = 0;       // media time of the newest picture in the buffer
  #keys = [];        // of pictures that can be begun with
  #shown = null;     // of the picture on the screen
  #frames_since = null; // on the board, without a pause; milliseconds of this page
  #origin = null;    // the board's time at media time 0

  constructor(video, say) {
    this.#video = video;
    this.#say = say;
    if (!Source) {
      say('This browser has no Media Source Extensions: it can show everything but the picture');
      return;
    }
    video.disableRemotePlayback = true;
    video.addEventListener('error', () => {
      if (video.error && this.#source) {
        say(`The browser could not go on with the picture: ${video.error.message}`);
        this.#follower.again();
      }
    });
    document.addEventListener('visibilitychange', () => this.#play());
    this.#watch_shown();
    let cutter;
    this.#follower = follow('/video.mp4', {
      open: () => {
        cutter = new Cutter();
        this.#begin();
      },
      bytes: (piece) => {
        for (const part of cutter.cut(piece)) {
          this.#take(part);
        }
      },
      closed: (why) => this.#end(why),
      is_stuck: (silence, since) => {
        const frames = this.#frames_since === null ? 0 : performance.now() - this.#frames_since;
        return frames > 3000 && (silence > 3000 || (since > 1000 * hopeless && this.age > hopeless));
      },
    });
  }

  // What the state says of the newest frame on the board; null when it is not known.
  set frame_age(seconds) {
    const has_frames = seconds !== null && seconds < 1;
    if (!has_frames || this.#frames_since === null) {
      this.#frames_since = has_frames ? performance.now() : null;
    }
  }

  // Told by the gateway. Another one is another gateway's, and nothing of its stream has been shown yet.
  set origin(seconds) {
    if (seconds !== this.#origin) {
      this.#origin = seconds;
      this.#shown = null;
    }
  }

  // Seconds between the picture that is shown and now; null while there is none, or its time is not known.
  get age() {
    const now = clock.now();
    return now === null || this.#origin === null || this.#shown === null ? null : now - this.#origin - this.#shown;
  }

  get is_there() {
    return this.#shown !== null && this.#video.videoWidth > 0;
  }

  // The picture on the screen as a file; null without one.
  still() {
    if (!this.is_there) {
      return Promise.resolve(null);
    }
    const canvas = document.createElement('canvas');
    canvas.width = this.#video.videoWidth;
    canvas.height = this.#video.videoHeight;
    canvas.getContext('2d').drawImage(this.#video, 0, 0);
    return new Promise((resolve) => { canvas.toBlob(resolve, 'image/jpeg', 0.95); });
  }

  #begin() {
    const source = new Source();
    this.#source = source;
    this.#shown = null;
    this.#buffer = null;
    this.#queue = [];
    this.#keys = [];
    this.#codec = '';
    if (this.#video.src) {
      URL.revokeObjectURL(this.#video.src);
    }
    this.#video.src = URL.createObjectURL(source);
    source.addEventListener('sourceopen', () => this.#pump());
  }

  #end(why) {
    if (this.#source) {
      this.#say(`The picture's stream was lost: ${why}`);
    }
    this.#source = null;  // what is in the buffer stays on the screen, and gets old there
    this.#buffer = null;
    this.#queue = [];
  }

  #take(part) {
    this.#queue.push(part);
    if (this.#queue.length > largest_queue) {  // the decoder can't follow: on with the newest that it can begin with
      const key = this.#queue.findLastIndex((each) => each.codec || each.is_key);
      this.#queue.splice(0, Math.max(key, 0));
    }
    this.#pump();
  }

  #pump() {
    if (this.#source?.readyState !== 'open' || this.#buffer?.updating || this.#queue.length === 0) {
      return;
    }
    try {
      if (this.#queue[0].codec) {
        const header = this.#queue.shift();
        this.#set_codec(header.codec);
        this.#buffer.appendBuffer(header.bytes);
      } else if (!this.#trim()) {
        const end = this.#queue.findIndex((part) => part.codec);
        const parts = this.#queue.splice(0, end < 0 ? this.#queue.length : end);
        this.#newest = parts.at(-1).time;
        this.#keys.push(...parts.filter((part) => part.is_key).map((part) => part.time));
        this.#buffer.appendBuffer(join(parts.map((part) => part.bytes)));
      }
    } catch (failure) {
      this.#say(`The browser took no more of the picture: ${failure.message}`);
      this.#follower.again();
    }
  }

  #set_codec(codec) {
    const type = `video/mp4; codecs="${codec}"`;
    if (!this.#buffer) {
      const source = this.#source;
      this.#buffer = source.addSourceBuffer(type);
      this.#buffer.addEventListener('updateend', () => {
        if (source === this.#source) {
          this.#hold();
          this.#pump();
        }
      });
    } else if (codec !== this.#codec) {
      this.#buffer.changeType(type);
    }
    this.#codec = codec;
  }

  // Takes away what was shown, up to a picture that can be begun with. True when it has begun to.
  #trim() {
    const old = this.#video.currentTime - kept;
    const key = this.#keys.findLastIndex((time) => time < old);
    const held = this.#buffer.buffered;
    if (key < 1 || held.length === 0 || this.#keys[key] - held.start(0) < kept) {
      return false;
    }
    this.#buffer.remove(0, this.#keys[key]);
    this.#keys.splice(0, key);
    return true;
  }

  #hold() {
    const video = this.#video;
    const held = this.#buffer?.buffered;
    if (!held?.length || video.readyState === 0) {
      return;
    }
    const begin = held.start(held.length - 1);
    const behind = this.#newest - video.currentTime;
    if (video.currentTime < begin || behind > too_far) {
      video.currentTime = Math.max(begin, this.#newest - target);
    } else {
      const rate = behind > 2 * target ? Math.min(1.05 + behind, 1.6) : behind < target / 2 ? 0.9 : 1;
      if (Math.abs(video.playbackRate - rate) > 0.03) {
        video.playbackRate = rate;
      }
    }
    this.#play();
  }

  #play() {
    if (this.#video.paused && !document.hidden && this.#source) {
      this.#video.play().catch(() => {});  // taken up with the next picture
    }
  }

  #watch_shown() {
    const video = this.#video;
    if (!video.requestVideoFrameCallback) {
      video.addEventListener('timeupdate', () => { this.#shown = video.currentTime; });
      return;
    }
    const look = (_, { mediaTime }) => {
      this.#shown = mediaTime;
      video.requestVideoFrameCallback(look);
    };
    video.requestVideoFrameCallback(look);
  }
}
