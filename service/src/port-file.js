import { rename, rm, writeFile } from 'node:fs/promises';

// Written to a temporary name and renamed into place, so whoever polls for the file never
// reads it half written.
export async function writePortFile(file, baseUrl) {
  const temporary = `${file}.${process.pid}.tmp`;
  try {
    await writeFile(temporary, `${baseUrl}\n`);
    await rename(temporary, file);
  } catch (err) {
    await rm(temporary, { force: true });
    throw err;
  }
}
