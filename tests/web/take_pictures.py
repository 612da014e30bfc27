"""Takes the pictures of the page that the documents show, over a simulated flight.

scripts/web-test --pictures runs it, and says where the build is: BUILD.
"""

from __future__ import annotations

import subprocess
import tempfile
from pathlib import Path

from stage import LAPTOP, PHONE, TESTS, Board, Browser, Gateway, until
from selenium.webdriver.common.action_chains import ActionChains

FOLDER = TESTS.parent / "docs/pictures"

# Far to near: height of a ridge in lines from above; its red, green and blue, and what a line adds.
RIDGES = (
    ("315+46*sin(X/190+2)+24*sin(X/71)+9*sin(X/23+1)+4*sin(X/9)",
     ((112, .25), (138, .22), (166, .10))),
    ("395+38*sin(X/150)+20*sin(X/53+2)+7*sin(X/17)", ((66, .22), (98, .22), (112, .10))),
    ("470+30*sin(X/230+4)+14*sin(X/83)+5*sin(X/19)+2*sin(X/6)", ((38, .13), (72, .11), (46, .06))),
)
SUN = "hypot(X-1500,Y-250)"
SKY = tuple(f"({base}+{slope}*Y+{glow}*exp(-{SUN}/210))"
            for base, slope, glow in ((96, .24, 120), (146, .14, 80), (198, .03, 10)))


def paint(colour: int) -> str:
    """Red, green or blue of a landscape, as an expression of ffmpeg's."""
    text = f"if(lt({SUN},34),{(255, 246, 214)[colour]},{SKY[colour]})"
    for height, colours in RIDGES:
        base, slope = colours[colour]
        text = f"if(lt(Y,{height}),{text},{base}+{slope}*(Y-{height}))"
    return f"clip({text},0,255)"


def make_clip(clip: Path) -> Path:
    """A flight along mountains, there and back in twelve seconds."""
    landscape = f"geq=r='{paint(0)}':g='{paint(1)}':b='{paint(2)}'"
    flight = "loop=359:1,fps=30,crop=1280:720:x='660+600*sin(2*PI*n/360)':y=0,format=yuv420p"
    subprocess.run(
        ["ffmpeg", "-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
         f"color=s=2600x720:r=30:d=0.01,format=gbrp,{landscape},{flight}", "-c:v", "libx264",
         "-preset", "veryfast", "-crf", "24", "-x264-params",
         "keyint=30:scenecut=0:bframes=0:slices=1:repeat-headers=1", "-f", "h264", clip],
        check=True)
    return clip


def take(browser: Browser, name: str) -> None:
    """Writes what the browser shows, in 256 colours."""
    FOLDER.mkdir(exist_ok=True)
    with tempfile.NamedTemporaryFile(suffix=".png") as shot:
        browser.driver.save_screenshot(shot.name)
        colours = "split[a][b];[a]palettegen[c];[b][c]paletteuse=dither=bayer:bayer_scale=4"
        subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-i", shot.name,
                        "-filter_complex", colours, FOLDER / name], check=True)
    print(f"{FOLDER / name}: {(FOLDER / name).stat().st_size} bytes")


def fly(browser: Browser) -> None:
    """Films, with what a camera operator would set."""
    browser.take_control()
    browser.press('.row[data-command="histogram"] button[value="1"]')
    browser.press("#record")
    for words in ("iso 200", "video_mode manual", "shutter 1/500", "aperture 5.6", "wb sunny"):
        name, value = words.split()
        browser.js(f"""const field = document.getElementById('set-{name}');
            field.value = '{value}';
            field.dispatchEvent(new Event('change'));""")
    pad = browser.driver.find_element("id", "pad")
    hand = ActionChains(browser.driver)
    hand.move_to_element_with_offset(pad, 40, -40).click_and_hold().perform()
    until(lambda: int(browser.text("tilt")[:-1].replace("\u2212", "-")) >= 8, "the gimbal's tilt")
    hand = ActionChains(browser.driver)
    hand.release().perform()
    until(lambda: browser.text("recording") >= "REC 00:07", "seven seconds")
    browser.js("document.activeElement.blur(); document.getElementById('panel').scrollTo(0, 0)")


def main() -> None:
    """A laptop's in light colours, a phone's in dark ones."""
    with tempfile.TemporaryDirectory(prefix="ardenvue-web-") as folder:
        board = Board(clip=make_clip(Path(folder) / "flight.h264"))
        gateway = Gateway(board)
        browser = Browser()
        try:
            browser.open(f"http://{gateway.address}/#name=Anna")
            fly(browser)
            take(browser, "page-laptop.png")
            browser.show_as(PHONE, is_dark=True, scale=2)
            browser.wait_for("live")
            take(browser, "page-phone.png")
        finally:
            browser.close()
            gateway.stop()
            board.close()


if __name__ == "__main__":
    main()
