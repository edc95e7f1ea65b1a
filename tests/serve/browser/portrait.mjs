// Makes the picture of the page that stands in the guides.
//   node portrait.mjs BASE_URL TOKEN FILE
import { Browser, until } from './browser.mjs';

const kRows = 220; // of the height map, until it is full
const kHeight = 6; // millimetres, of something worth seeing
const kPatience = 60_000;

const [url, token, file] = process.argv.slice(2);
const browser = await Browser.launch({ address: `${url}#token=${token}` });
try {
  const page = await browser.open({ viewport: { width: 1280, height: 1010 } });
  const profile = () => page.evaluate(() => window.tessaline.profile);
  const first = (await until(profile, 'no profile came')).id;
  await until(async () => {
    const now = await page.evaluate(() => ({
      id: Number(window.tessaline.profile.id),
      high: Math.max(...window.tessaline.profile.z),
    }));
    return now.id - Number(first) > kRows * 10 && now.high > kHeight;
  }, 'nothing high came', kPatience);
  await page.screenshot({ path: file });
} finally {
  await browser.close();
}
