#!/usr/bin/env python3
"""Drives the web front door's explorer in headless Chromium (Selenium):
log in, read sshPort, change it, read it back, open the name list, download
viewer.jnlp, log out. Screenshots go to OUT_DIR. Usage:
browser-test.py URL OUT_DIR"""
import os
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait

url, out = sys.argv[1], os.path.abspath(sys.argv[2])
downloads = os.path.join(out, "downloads")
os.makedirs(downloads, exist_ok=True)

options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for arg in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-dev-shm-usage", "--window-size=1280,900",
            "--user-data-dir=" + os.path.join(out, "profile")):
    options.add_argument(arg)
options.add_experimental_option("prefs", {"download.default_directory": downloads,
                                          "download.prompt_for_download": False})
driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
wait = WebDriverWait(driver, 20)
step = [0]


def shot(name):
    step[0] += 1
    driver.save_screenshot(os.path.join(out, "%02d-%s.png" % (step[0], name)))


def send(text):
    box = driver.find_element(By.ID, "request")
    box.clear()
    box.send_keys(text)
    before = len(driver.find_elements(By.CSS_SELECTOR, "#history li"))
    driver.find_element(By.ID, "send").click()
    wait.until(lambda d: len(d.find_elements(By.CSS_SELECTOR, "#history li")) > before)
    return driver.find_element(By.ID, "status").text, driver.find_element(By.ID, "reply").text


def check(what, cond):
    if not cond:
        shot("failed")
        raise SystemExit("browser test failed: " + what)
    print("ok  " + what)


try:
    driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
    driver.get(url)
    wait.until(EC.visibility_of_element_located((By.ID, "login-form")))
    shot("login")
    driver.find_element(By.ID, "user").clear()
    driver.find_element(By.ID, "user").send_keys("admin")
    driver.find_element(By.ID, "password").send_keys("password")
    driver.find_element(By.ID, "login").click()
    wait.until(EC.visibility_of_element_located((By.ID, "work")))
    check("logged in as admin", "admin" in driver.find_element(By.ID, "who").text)

    status, reply = send("get=sshPort")
    check("read sshPort: " + reply.strip(), status == "ok" and "<sshPort>22</sshPort>" in reply)
    status, reply = send("set=sshPort:2222")
    check("set sshPort", status == "ok")
    status, reply = send("get=sshPort")
    check("read it back: " + reply.strip(), "<sshPort>2222</sshPort>" in reply)
    shot("reply")

    driver.find_element(By.CSS_SELECTOR, "#names-panel summary").click()
    wait.until(lambda d: d.find_elements(By.CSS_SELECTOR, "#names a[data-name='sshTimeout']"))
    groups = driver.find_elements(By.CSS_SELECTOR, "#names h3")
    check("name list with %d agents" % len(groups), len(groups) >= 3)
    driver.find_element(By.CSS_SELECTOR, "#names a[data-name='sshTimeout']").click()
    wait.until(lambda d: "<sshTimeout>" in d.find_element(By.ID, "reply").text)
    shot("names")

    driver.find_element(By.ID, "dl-viewer").click()
    target = os.path.join(downloads, "viewer.jnlp")
    for _ in range(100):
        if os.path.exists(target) and os.path.getsize(target) > 0:
            break
        time.sleep(0.1)
    check("viewer.jnlp downloaded", os.path.exists(target) and "<jnlp" in open(target).read())

    driver.find_element(By.ID, "logout").click()
    wait.until(EC.visibility_of_element_located((By.ID, "login-form")))
    shot("logged-out")
    check("logged out", not driver.find_element(By.ID, "work").is_displayed())
finally:
    driver.quit()
print("browser test passed; screenshots in " + out)
