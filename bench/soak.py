"""Memory and responsiveness of the Kavel window over a long session.

usage: soak.py BIN_DIR [--minutes N] [--out DIR]   (run through bench/soak.sh)
       soak.py --summarize soak.csv                  (the figures of an earlier run)

Makes a one-hour project with 10,000 words and two one-minute ones, starts kavel on a
private X display and repeats, until the time is up, the cycle a user goes through: open
a project from the home page, play, delete a word and undo another, export (the short
projects: movie, MP3 and subtitles), show the preview full screen, save and go home.
Every two seconds it notes the window's resident memory; every action it notes how long
the window took to answer (the screen changing after a key or click). Writes
soak.csv (seconds, MB, threads, phase) and prints the curve and the figures the targets
are about: resident memory with the one-hour project open (250 MB), growth between the
end of the first cycle and the end of the run (20 MB over 30 minutes), the slowest
answer (1 s).
"""
import hashlib, json, os, subprocess, sys, tempfile, threading, time, uuid

SCREEN = (1280, 900)
HOME_SIDEBAR, SEARCH, FIRST_CARD = (90, 101), (1012, 225), (372, 340)
TRANSCRIPT, PREVIEW = (660, 134), (400, 320)
TOOLBAR = (180, 25, 1020, 70)         # back button and tools: differs between home and editor
PLAY_CONTROLS = (180, 585, 440, 25)   # play button and time label


def run(*args, **kw):
    return subprocess.run(args, check=True, capture_output=True, text=True, **kw)


def make_media(work):
    long_source, short_source = f"{work}/lecture.mp4", f"{work}/clip.mp4"
    run("ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "color=c=navy:s=640x360:r=25",
        "-f", "lavfi", "-i", "sine=frequency=220:sample_rate=44100", "-t", "3600",
        "-c:v", "libx264", "-preset", "ultrafast", "-crf", "40", "-g", "250",
        "-c:a", "aac", "-b:a", "64k", long_source)
    run("ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc2=s=640x360:r=25",
        "-f", "lavfi", "-i", "sine=frequency=330:sample_rate=44100", "-t", "60",
        "-c:v", "libx264", "-preset", "veryfast", "-c:a", "aac", short_source)
    return long_source, short_source


def make_project(bin_dir, env, title, source, paragraphs, words, word_seconds):
    bundle = run(f"{bin_dir}/kavel-cli", "new", title, env=env).stdout.strip()
    run(f"{bin_dir}/kavel-cli", "add-media", bundle, source, env=env)
    source_id = json.load(open(f"{bundle}/project.json"))["sourceFiles"][0]["id"]
    at, doc = 0.0, {"version": 2, "paragraphs": []}
    for p in range(paragraphs):
        blocks = []
        for w in range(words):
            blocks.append({"id": str(uuid.uuid4()).upper(), "text": f"词{p}_{w}",
                           "mediaStart": round(at, 3), "mediaEnd": round(at + word_seconds, 3),
                           "sortOrder": p * words + w, "sourceFileId": source_id})
            at += word_seconds + 0.06
        doc["paragraphs"].append({"id": str(uuid.uuid4()).upper(), "sortOrder": p,
                                  "wordBlocks": blocks})
    json.dump(doc, open(f"{bundle}/timeline.json", "w"))
    return bundle


class Screen:
    def __init__(self, display):
        self.display = display

    def grab(self):
        return subprocess.run(
            ["ffmpeg", "-loglevel", "error", "-f", "x11grab", "-draw_mouse", "0", "-video_size",
             f"{SCREEN[0]}x{SCREEN[1]}", "-i", self.display, "-frames:v", "1", "-f", "rawvideo",
             "-pix_fmt", "gray", "-"], capture_output=True, check=True).stdout

    def region(self, box):
        x, y, w, h = box
        frame = self.grab()
        rows = [frame[(y + r) * SCREEN[0] + x:(y + r) * SCREEN[0] + x + w] for r in range(h)]
        return hashlib.sha1(b"".join(rows)).hexdigest()


class Soak:
    def __init__(self, bin_dir, minutes, out):
        self.bin, self.minutes, self.out = bin_dir, minutes, out
        self.work = tempfile.mkdtemp(prefix="kavel-soak-")
        self.samples, self.answers, self.phase = [], [], "starting"
        self.stop = threading.Event()

    def env(self):
        home = f"{self.work}/home"
        return dict(os.environ, HOME=home, XDG_CONFIG_HOME=f"{home}/.config",
                    XDG_DATA_HOME=f"{home}/.local/share", XDG_CACHE_HOME=f"{home}/.cache",
                    XDG_RUNTIME_DIR=f"{self.work}/runtime", KAVEL_PROJECTS_DIR=f"{self.work}/projects",
                    QT_QPA_PLATFORM="xcb", SDL_AUDIODRIVER="dummy", LANG="C.UTF-8")

    def key(self, *keys):
        run("xdotool", "key", "--clearmodifiers", *keys, env=self.xenv)

    def click(self, point, repeat=1):
        run("xdotool", "mousemove", "--sync", str(point[0]), str(point[1]), "click", "--repeat",
            str(repeat), "--delay", "80", "1", env=self.xenv)
        # Inside the window: without a window manager the keyboard follows the pointer.
        run("xdotool", "mousemove", "--sync", "1195", "5", env=self.xenv)

    def answered(self, what, box, action, limit=30.0):
        """Runs the action and notes how long the screen region took to change."""
        before = self.screen.region(box)
        started = time.monotonic()
        action()
        while self.screen.region(box) == before:
            if time.monotonic() - started > limit:
                raise RuntimeError(f"no answer to {what} within {limit:.0f} s")
            if self.app.poll() is not None:
                raise RuntimeError(f"kavel ended during {what}")
        self.answers.append((what, time.monotonic() - started))

    def sample(self):
        started = time.monotonic()
        while not self.stop.wait(2.0):
            try:
                status = open(f"/proc/{self.app.pid}/status").read()
            except OSError:
                return
            fields = dict(line.split(":", 1) for line in status.splitlines() if ":" in line)
            rss = int(fields["VmRSS"].split()[0]) / 1024
            self.samples.append((time.monotonic() - started, rss, int(fields["Threads"]), self.phase))

    def cycle(self, title, export, first_export):
        self.phase = f"open {title}"
        self.click(SEARCH)
        self.key("ctrl+a")
        run("xdotool", "type", "--delay", "20", title, env=self.xenv)
        self.answered("opening a project", TOOLBAR, lambda: self.click(FIRST_CARD, 2))
        time.sleep(2.0)
        self.phase = f"play {title}"
        self.answered("Space (play)", PLAY_CONTROLS, lambda: self.key("space"))
        time.sleep(4.0)
        self.answered("Space (pause)", PLAY_CONTROLS, lambda: self.key("space"))
        self.phase = f"edit {title}"
        self.click(TRANSCRIPT)
        for keys in (("shift+Right",), ("Delete",), ("shift+Right",), ("Delete",), ("ctrl+z",)):
            self.key(*keys)
            time.sleep(0.3)
        if export:
            self.phase = f"export {title}"
            video = f"{self.work}/exports/{title}.mp4"
            mtime = os.path.getmtime(video) if os.path.exists(video) else 0
            self.key("ctrl+e")
            time.sleep(1.0)
            if first_export:
                self.key("Tab", "Tab", "Tab", "Tab", "Tab", "Tab", "space", "Tab", "Tab", "space")
            self.key("Return")
            deadline = time.monotonic() + 300
            while not (os.path.exists(video) and os.path.getmtime(video) > mtime):
                if time.monotonic() > deadline or self.app.poll() is not None:
                    raise RuntimeError(f"the export of {title} did not finish")
                time.sleep(0.5)
            time.sleep(1.0)
            self.key("Escape")
            time.sleep(1.0)
        self.phase = f"full screen {title}"
        self.click(PREVIEW, 2)
        time.sleep(2.0)
        self.key("Escape")
        time.sleep(1.0)
        self.phase = f"home from {title}"
        self.key("ctrl+s")
        time.sleep(0.5)
        self.answered("going home", TOOLBAR, lambda: self.click(HOME_SIDEBAR))
        time.sleep(1.0)

    def main(self):
        env = self.env()
        for folder in ("home/.config/Kavel", "runtime", "projects", "exports"):
            os.makedirs(f"{self.work}/{folder}", exist_ok=True)
        os.chmod(f"{self.work}/runtime", 0o700)
        with open(f"{self.work}/home/.config/Kavel/Kavel.conf", "w") as conf:
            conf.write(f"[General]\ndefaultExportPath={self.work}/exports\n")
        print("making media and projects …", flush=True)
        long_source, short_source = make_media(self.work)
        titles = ["lecture", "clip-a", "clip-b"]
        make_project(self.bin, env, titles[0], long_source, 200, 50, 0.3)
        for title in titles[1:]:
            make_project(self.bin, env, title, short_source, 10, 15, 0.34)

        xvfb = subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0",
                                 f"{SCREEN[0]}x{SCREEN[1]}x24"], stdout=subprocess.PIPE)
        display = ":" + xvfb.stdout.readline().decode().strip()
        self.xenv = dict(os.environ, DISPLAY=display)
        self.screen = Screen(display)
        log = open(f"{self.work}/kavel.log", "w")
        self.app = subprocess.Popen([f"{self.bin}/kavel"], env=dict(env, DISPLAY=display),
                                    stdout=log, stderr=subprocess.STDOUT)
        sampler = threading.Thread(target=self.sample)
        try:
            deadline = time.monotonic() + 30
            while not subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^Kavel$"],
                                     env=self.xenv, capture_output=True).stdout:
                if time.monotonic() > deadline:
                    raise RuntimeError("the window did not show")
                time.sleep(0.2)
            time.sleep(2.0)
            sampler.start()
            end = time.monotonic() + self.minutes * 60
            cycles, first_cycle_end = 0, None
            while time.monotonic() < end:
                title = titles[cycles % len(titles)]
                self.cycle(title, export=title != "lecture", first_export=cycles == 1)
                cycles += 1
                if cycles == len(titles):
                    first_cycle_end = self.samples[-1][0] if self.samples else 0
        finally:
            self.stop.set()
            if sampler.is_alive():
                sampler.join()
            self.app.terminate()
            self.app.wait(timeout=20)
            xvfb.terminate()
        self.report(cycles, first_cycle_end)

    def report(self, cycles, warm):
        os.makedirs(self.out, exist_ok=True)
        with open(f"{self.out}/soak.csv", "w") as csv:
            csv.write("seconds,resident_mb,threads,phase\n")
            for t, rss, threads, phase in self.samples:
                csv.write(f"{t:.1f},{rss:.1f},{threads},{phase}\n")
        print(f"{cycles} cycles in {self.minutes} minutes")
        summarize(self.samples, warm)
        worst = max(self.answers, key=lambda a: a[1])
        print(f"slowest answer: {worst[1]:.2f} s ({worst[0]}); {len(self.answers)} measured")
        print(f"samples in {self.out}/soak.csv; log in {self.work}/kavel.log")


def summarize(samples, warm=None):
    """The curve and the figures the targets are about. Resident memory swings by hundreds
    of megabytes between an export and the home page, so growth compares like with like:
    the home page just before each project is opened, and each visit to the long project."""
    print("the curve (resident MB, highest in each minute, and the phase then):")
    for minute in range(0, int(samples[-1][0] // 60) + 1):
        near = [s for s in samples if minute * 60 <= s[0] < minute * 60 + 60]
        if near:
            top = max(near, key=lambda s: s[1])
            print(f"  {minute:3d} min  {top[1]:7.1f}  {top[3]}")
    visits, home, previous, inside = [], {}, None, False
    for t, rss, threads, phase in samples:
        # The first sample of "open X" is the home page just before X opens. The page is
        # sampled at different times after the return (before or after the memory is
        # given back), so each project's openings are compared among themselves.
        if phase.startswith("open") and phase != previous and (warm is None or t >= warm):
            home.setdefault(phase[5:], []).append((t, rss, threads))
        now_inside = phase.endswith(" lecture") and not phase.startswith(("open", "home"))
        if now_inside and not inside:
            visits.append([])
        if now_inside:
            visits[-1].append(rss)
        previous, inside = phase, now_inside
    if visits:
        peaks = [max(v) for v in visits]
        print(f"resident with the one-hour project open: max {max(peaks):.1f} MB; "
              f"per visit {', '.join(f'{p:.0f}' for p in peaks)}")
    for title, points in home.items():
        if len(points) > 1:
            print(f"home page before opening {title}: {points[0][1]:.0f} MB at "
                  f"{points[0][0] / 60:.1f} min, {points[-1][1]:.0f} MB at "
                  f"{points[-1][0] / 60:.1f} min ({points[-1][1] - points[0][1]:+.1f} MB); "
                  f"threads {points[0][2]} -> {points[-1][2]}")


if __name__ == "__main__":
    args = sys.argv[1:]
    if args and args[0] == "--summarize":
        # Figures from the samples of an earlier run: soak.py --summarize soak.csv
        rows = [line.rstrip("\n").split(",", 3) for line in open(args[1]).readlines()[1:]]
        samples = [(float(t), float(m), int(n), p) for t, m, n, p in rows]
        # Without the run's own mark, the first round ends at the fourth opening.
        opens = [t for i, (t, m, n, p) in enumerate(samples)
                 if p.startswith("open") and (i == 0 or samples[i - 1][3] != p)]
        summarize(samples, opens[3] if len(opens) > 3 else None)
        sys.exit(0)
    minutes = float(args[args.index("--minutes") + 1]) if "--minutes" in args else 30
    out = args[args.index("--out") + 1] if "--out" in args else "soak-results"
    Soak(os.path.abspath(args[0]), minutes, os.path.abspath(out)).main()
